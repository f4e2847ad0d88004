// The hand-over on the desktop's own services: a contact hidden from a vdir address book
// leaves as a card in the Trash (with its record) and stays as a name and a number in the
// SQLite object store, which a new container reads back.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "contacts/ContactVC.h"
#include "desktop/contacts/VdirContactStore.h"
#include "desktop/library/Trash.h"
#include "desktop/system/LaunchServices.h"
#include "kit/AlertController.h"
#include "kit/NavigationController.h"
#include "kit/ProgressHUD.h"
#include "kit/Storyboard.h"
#include "kit/Toast.h"
#include "kit/Window.h"
#include "shell/MainStoryboard.h"
#include "sim/World.h"
#include "vault/ContactDataDetail.h"

namespace contacts {
namespace {

namespace fs = std::filesystem;

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(HandOverTest, TheCardGoesToTheTrashAndTheRecordToTheStore) {
  char pattern[] = "/tmp/solvanta-handover-XXXXXX";
  const std::string dir = ::mkdtemp(pattern);
  const std::string book = dir + "/contacts";
  fs::create_directories(book);
  std::ofstream(book + "/ann.vcf") << "BEGIN:VCARD\r\nVERSION:3.0\r\nUID:a\r\nN:Lee;Ann;;;\r\nTEL;TYPE=CELL:+1 555 0100\r\nEND:VCARD\r\n";
  std::ofstream(book + "/bo.vcf") << "BEGIN:VCARD\r\nVERSION:3.0\r\nUID:b\r\nN:Ek;Bo;;;\r\nEND:VCARD\r\n";
  {
    sim::World world;
    auto permissions = std::make_shared<desktop::PermissionStore>(dir + "/permissions.json", desktop::PermissionPrompt{});
    permissions->set(desktop::PermissionKind::Contacts, platform::AuthorizationStatus::Authorized);
    auto services = platform::services();
    services.contactStore = std::make_shared<desktop::VdirContactStore>(desktop::VdirContactStoreOptions{
        book, permissions, std::make_shared<desktop::Trash>(dir + "/Trash"), [](const std::string&) {}});
    services.persistentStores = std::make_shared<desktop::SqlitePersistentStores>(dir + "/support");
    platform::install(services);

    shell::registerMainStoryboard();
    auto nav = std::make_shared<kit::NavigationController>(
        kit::Storyboard::named("Main").instantiateViewControllerWithIdentifier("SecretContactVC"));
    auto window = kit::make<kit::Window>();
    window->setRootViewController(nav);
    window->makeKeyAndVisible();
    auto vc = kit::Storyboard::named("Main").instantiate<ContactVC>("ContactVC");
    vc->isFrom = "duplicate";
    nav->pushViewController(vc, false);
    world.env.runUntilIdle();
    ASSERT_EQ(vc->contactList.size(), 4u);
    ASSERT_EQ(vc->contactList[0]->contactName, "Ann Lee");
    vc->contactList[0]->isSelected = true;
    vc->importContact();
    auto alert = std::dynamic_pointer_cast<kit::AlertController>(nav->presentedViewController());
    ASSERT_TRUE(alert);
    alert->chooseActionTitled("Yes");
    world.env.runUntilIdle();
    kit::ToastManager::shared().hideAllToasts();
    kit::ProgressHUD::shared().dismiss();
  }
  // The card: gone from the book, in the Trash with a record of where it was.
  EXPECT_FALSE(fs::exists(book + "/ann.vcf"));
  EXPECT_TRUE(fs::exists(book + "/bo.vcf"));
  EXPECT_NE(slurp(dir + "/Trash/files/ann.vcf").find("N:Lee;Ann;;;"), std::string::npos);
  std::string info = slurp(dir + "/Trash/info/ann.vcf.trashinfo");
  EXPECT_TRUE(std::regex_match(info, std::regex("\\[Trash Info\\]\nPath=" + desktop::percentEncodePath(book + "/ann.vcf") +
                                                "\nDeletionDate=\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\n")))
      << info;
  // The record: read back by a new container on the same file.
  desktop::SqlitePersistentStores stores(dir + "/support");
  auto container = stores.containerWithName("ContactDataModel");
  container->loadPersistentStoresWithCompletionHandler([](const auto&, std::optional<platform::Error> e) { ASSERT_FALSE(e); });
  platform::Error error;
  auto records = container->viewContext()->executeFetchRequest(vault::ContactDataDetail::entity(), &error);
  ASSERT_TRUE(records);
  ASSERT_EQ(records->size(), 1u);
  auto record = std::static_pointer_cast<vault::ContactDataDetail>(records->front());
  EXPECT_EQ(record->contactName(), "Ann Lee");
  EXPECT_EQ(record->contactNumber(), "+1 555 0100");
  EXPECT_FALSE(record->isSelected());
  fs::remove_all(dir);
}

}  // namespace
}  // namespace contacts
