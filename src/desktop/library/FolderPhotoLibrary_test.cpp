#include "desktop/library/FolderPhotoLibrary.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <regex>

#include "desktop/system/FileUtil.h"
#include "desktop/testing/DesktopTesting.h"
#include "desktop/threaded/ThreadedEnvironment.h"
#include "kit/Date.h"

namespace desktop {
namespace {

using platform::AuthorizationStatus;
using platform::MediaType;
using samplegen::utcSeconds;

// Counts the files read through it.
class CountingReader : public MediaReader {
 public:
  MediaInfo read(const std::string& path) override {
    ++reads;
    return inner.read(path);
  }
  FileMediaReader inner;
  std::atomic<int> reads{0};
};

struct LibraryTest : ::testing::Test {
  LibraryTest() {
    permissions->set(PermissionKind::Photos, AuthorizationStatus::Authorized);
    std::string error;
    EXPECT_TRUE(makeDirectories(root, 0755, &error)) << error;
    EXPECT_TRUE(makeDirectories(home.folders().cache(), 0700, &error)) << error;
  }
  ~LibraryTest() override { kit::TimeZone::setDefaultTimeZone(nullptr); }

  // A new library object on the same folder and index (as a later run would make).
  std::shared_ptr<FolderPhotoLibrary> makeLibrary() {
    FolderPhotoLibraryOptions options;
    options.root = root;
    options.indexPath = indexPathFor(home.folders().cache(), root);
    options.permissions = permissions;
    options.confirm = [this](const std::string& message) {
      questions.push_back(message);
      return answer;
    };
    options.trash = std::make_shared<Trash>(home.folders().homeTrash());
    options.reader = reader;
    options.excludedFolders = home.folders().ownFolders();
    return std::make_shared<FolderPhotoLibrary>(std::move(options));
  }

  std::vector<platform::AssetPtr> fetch(FolderPhotoLibrary& library, MediaType type,
                                        bool sorted = true) {
    platform::FetchOptions options;
    options.setSortDescriptors({{"creationDate", true}});
    return library.fetchAssetsWithMediaType(type, sorted ? &options : nullptr).assets();
  }

  static std::vector<std::string> names(const std::vector<platform::AssetPtr>& assets) {
    std::vector<std::string> out;
    for (const auto& a : assets) out.push_back(*a->valueForKey("filename").asString());
    return out;
  }

  static const FileAsset& file(const platform::AssetPtr& asset) {
    return dynamic_cast<const FileAsset&>(*asset);
  }

  testing::IsolatedHome home;
  std::string root = home.dir() / "library";
  std::shared_ptr<PermissionStore> permissions =
      std::make_shared<PermissionStore>(home.dir() / "permissions.json", nullptr);
  std::shared_ptr<CountingReader> reader = std::make_shared<CountingReader>();
  std::vector<std::string> questions;  // written on the change queue, read after it is done
  bool answer = true;
};

TEST_F(LibraryTest, FetchesPhotosAndVideosByCaptureTime) {
  kit::TimeZone::setDefaultTimeZone(kit::TimeZone::utc());
  testing::writePhoto(root + "/b/late.jpg", {"2023:06:10 12:00:00"});
  testing::writePhoto(root + "/a/early.jpg", {"2023:06:10 08:00:00"});
  testing::writePhoto(root + "/no-exif.jpg", {}, utcSeconds(2023, 6, 10, 10, 0, 0));
  testing::writeClip(root + "/clip.mov", 2.0, "2023-06-10T09:00:00.000000Z");
  testing::writeBytes(root + "/notes.txt", {'h', 'i'});
  auto library = makeLibrary();

  auto photos = fetch(*library, MediaType::Image);
  EXPECT_EQ(names(photos), (std::vector<std::string>{"early.jpg", "no-exif.jpg", "late.jpg"}));
  EXPECT_EQ(photos[0]->creationDate()->timeIntervalSince1970, utcSeconds(2023, 6, 10, 8, 0, 0));
  EXPECT_EQ(photos[1]->creationDate()->timeIntervalSince1970, utcSeconds(2023, 6, 10, 10, 0, 0));
  EXPECT_EQ(file(photos[0]).path(), root + "/a/early.jpg");
  EXPECT_EQ(photos[0]->mediaType(), MediaType::Image);
  EXPECT_EQ(photos[0]->duration(), 0);
  EXPECT_EQ(photos[0]->pixelWidth(), 32);

  // Without sort descriptors: walk order (a folder's files, then its subfolders).
  EXPECT_EQ(names(fetch(*library, MediaType::Image, false)),
            (std::vector<std::string>{"no-exif.jpg", "early.jpg", "late.jpg"}));

  auto videos = fetch(*library, MediaType::Video);
  ASSERT_EQ(videos.size(), 1u);
  EXPECT_EQ(videos[0]->duration(), 2.0);
  EXPECT_EQ(videos[0]->creationDate()->timeIntervalSince1970, utcSeconds(2023, 6, 10, 9, 0, 0));
  EXPECT_EQ(library->fetchAssetsWithOptions(nullptr).count(), 4);

  // Identity is the file's: the same in a later run, equal for the same file.
  auto again = fetch(*makeLibrary(), MediaType::Image);
  EXPECT_EQ(again[0]->localIdentifier(), photos[0]->localIdentifier());
  EXPECT_TRUE(again[2]->isEqual(*photos[2]));
  EXPECT_FALSE(again[0]->isEqual(*photos[1]));
  struct stat st {};
  ASSERT_EQ(::stat((root + "/a/early.jpg").c_str(), &st), 0);
  EXPECT_EQ(photos[0]->localIdentifier(),
            std::to_string(st.st_dev) + ":" + std::to_string(st.st_ino));
}

TEST_F(LibraryTest, CameraClockTimesAreTakenInTheDevicesZone) {
  testing::writePhoto(root + "/local.jpg", {"2023:06:10 12:00:00"});
  testing::writePhoto(root + "/zoned.jpg", {"2023:06:10 12:00:00", "", "+05:00"});
  auto library = makeLibrary();
  kit::TimeZone::setDefaultTimeZone(kit::TimeZone::fixed(2 * 3600, "UTC+2"));
  auto photos = fetch(*library, MediaType::Image, false);
  ASSERT_EQ(photos.size(), 2u);
  EXPECT_EQ(photos[0]->creationDate()->timeIntervalSince1970, utcSeconds(2023, 6, 10, 10, 0, 0));
  EXPECT_EQ(photos[1]->creationDate()->timeIntervalSince1970, utcSeconds(2023, 6, 10, 7, 0, 0));
  // The index keeps the camera's clock, not an instant: another zone later gives another instant.
  kit::TimeZone::setDefaultTimeZone(kit::TimeZone::utc());
  photos = fetch(*makeLibrary(), MediaType::Image, false);
  EXPECT_EQ(photos[0]->creationDate()->timeIntervalSince1970, utcSeconds(2023, 6, 10, 12, 0, 0));
  EXPECT_EQ(photos[1]->creationDate()->timeIntervalSince1970, utcSeconds(2023, 6, 10, 7, 0, 0));
}

TEST_F(LibraryTest, EachFileOnceAndNeverThroughLinksHiddenNamesOrTheAppsOwnData) {
  testing::writePhoto(root + "/photo.jpg", {"2023:06:10 12:00:00"});
  ASSERT_EQ(::link((root + "/photo.jpg").c_str(), (root + "/zz-second-name.jpg").c_str()), 0);
  ASSERT_EQ(::symlink("photo.jpg", (root + "/link.jpg").c_str()), 0);
  ASSERT_EQ(::symlink(".", (root + "/self").c_str()), 0);  // a link loop
  ASSERT_EQ(::symlink("..", (root + "/up").c_str()), 0);
  testing::writePhoto(root + "/.hidden.jpg", {"2023:06:10 12:00:01"});
  testing::writePhoto(root + "/.cache/thumb.jpg", {"2023:06:10 12:00:02"});
  // The app's own data inside the library (XDG folders may point anywhere).
  std::string own = root + "/appdata";
  testing::writePhoto(own + "/secret.jpg", {"2023:06:10 12:00:03"});
  auto library = [&] {
    FolderPhotoLibraryOptions options;
    options.root = root;
    options.permissions = permissions;
    options.excludedFolders = {own};
    return std::make_shared<FolderPhotoLibrary>(std::move(options));
  }();

  auto photos = fetch(*library, MediaType::Image);
  EXPECT_EQ(names(photos), std::vector<std::string>{"photo.jpg"});
  EXPECT_EQ(file(photos[0]).otherPaths(), std::vector<std::string>{root + "/zz-second-name.jpg"});
  FetchReport report = library->lastFetchReport();
  EXPECT_EQ(report.files, 1);
  EXPECT_EQ(report.hardLinksSkipped, 1);
  EXPECT_EQ(report.symlinksSkipped, 3);
  EXPECT_TRUE(report.issues.empty());
}

TEST_F(LibraryTest, SecondFetchOfAnUnchangedLibraryReadsNoFile) {
  for (int i = 0; i < 40; ++i) {
    testing::writePhoto(root + "/p" + std::to_string(100 + i) + ".jpg",
                        {"2023:06:10 12:00:" + std::to_string(10 + i)},
                        utcSeconds(2024, 1, 1, 0, 0, i));
  }
  testing::writeBytes(root + "/notes.txt", {'h', 'i'});
  auto first = fetch(*makeLibrary(), MediaType::Image);
  ASSERT_EQ(first.size(), 40u);
  EXPECT_EQ(reader->reads.load(), 41);

  // Replace every photo's content with noise of the same size and file time: an index that
  // reads nothing still knows their capture times.
  for (const auto& asset : first) {
    const FileAsset& f = file(asset);
    testing::writeBytes(f.path(),
                        std::vector<std::uint8_t>(static_cast<std::size_t>(f.fileSize()), 0x55),
                        static_cast<double>(f.modificationTimeNs()) / 1e9);
  }
  reader->reads = 0;
  auto library = makeLibrary();  // a fresh object: the index comes from its file
  auto second = fetch(*library, MediaType::Image);
  EXPECT_EQ(reader->reads.load(), 0);
  EXPECT_EQ(library->lastFetchReport().readFromFiles, 0);
  ASSERT_EQ(second.size(), first.size());
  for (std::size_t i = 0; i < first.size(); ++i) {
    EXPECT_EQ(second[i]->creationDate(), first[i]->creationDate());
    EXPECT_EQ(second[i]->localIdentifier(), first[i]->localIdentifier());
  }
  // The same object fetches again from memory without reading either.
  fetch(*library, MediaType::Image);
  EXPECT_EQ(reader->reads.load(), 0);
}

TEST_F(LibraryTest, ChangedFilesAreReadAgainAndVanishedOnesDropped) {
  testing::writePhoto(root + "/a.jpg", {"2023:06:10 12:00:00"}, utcSeconds(2024, 1, 1, 0, 0, 0));
  testing::writePhoto(root + "/b.jpg", {"2023:06:10 12:00:01"}, utcSeconds(2024, 1, 1, 0, 0, 0));
  testing::writePhoto(root + "/c.jpg", {"2023:06:10 12:00:02"}, utcSeconds(2024, 1, 1, 0, 0, 0));
  auto library = makeLibrary();
  ASSERT_EQ(fetch(*library, MediaType::Image).size(), 3u);
  reader->reads = 0;

  // a.jpg gets another capture time (same size, new file time); c.jpg goes; d.jpg comes.
  testing::writePhoto(root + "/a.jpg", {"2023:06:11 09:00:00"}, utcSeconds(2024, 1, 2, 0, 0, 0));
  ASSERT_EQ(::unlink((root + "/c.jpg").c_str()), 0);
  testing::writePhoto(root + "/d.jpg", {"2023:06:12 09:00:00"});
  auto photos = fetch(*library, MediaType::Image);
  EXPECT_EQ(reader->reads.load(), 2);
  EXPECT_EQ(names(photos), (std::vector<std::string>{"b.jpg", "a.jpg", "d.jpg"}));

  // The index file agrees: a later run reads nothing and sees the same.
  reader->reads = 0;
  EXPECT_EQ(names(fetch(*makeLibrary(), MediaType::Image)), names(photos));
  EXPECT_EQ(reader->reads.load(), 0);
  auto index = MetadataIndex::open(indexPathFor(home.folders().cache(), root), nullptr);
  ASSERT_TRUE(index);
  EXPECT_EQ(index->loadAll().size(), 3u);
}

TEST_F(LibraryTest, BadInputIsSkippedOrReportedNeverFatal) {
  testing::writePhoto(root + "/good.jpg", {"2023:06:10 12:00:00"});
  testing::writeBytes(root + "/empty.jpg", {});
  auto jpeg =
      samplegen::withExif(samplegen::encodeImage("JPEG", 32, 24, 2), {"2023:06:10 12:00:05"});
  testing::writeBytes(root + "/cut.jpg", {jpeg.begin(), jpeg.begin() + 60},
                      utcSeconds(2023, 1, 1, 0, 0, 0));
  testing::writePhoto(root + "/bad-date.jpg", {"2023:02:30 25:00:00"},
                      utcSeconds(2023, 1, 2, 0, 0, 0));
  testing::writeBytes(root + "/readme.md", {'#', ' ', 'h', 'i'});
  testing::writePhoto(root + "/locked.jpg", {"2023:06:10 12:00:01"});
  ASSERT_EQ(::chmod((root + "/locked.jpg").c_str(), 0), 0);
  testing::writePhoto(root + "/closed/inside.jpg", {"2023:06:10 12:00:02"});
  ASSERT_EQ(::chmod((root + "/closed").c_str(), 0), 0);
  // A name that is not UTF-8.
  testing::writePhoto(root + "/caf\xE9.jpg", {"2023:06:10 12:00:03"});
  ASSERT_EQ(::mkfifo((root + "/pipe.jpg").c_str(), 0644), 0);
  ASSERT_EQ(::symlink("loop-b", (root + "/loop-a").c_str()), 0);
  ASSERT_EQ(::symlink("loop-a", (root + "/loop-b").c_str()), 0);

  auto library = makeLibrary();
  std::vector<platform::AssetPtr> photos;
  {
    testing::PermissionsEnforced enforced;
    photos = fetch(*library, MediaType::Image);
  }
  EXPECT_EQ(names(photos),
            (std::vector<std::string>{"cut.jpg", "bad-date.jpg", "good.jpg", "caf\xE9.jpg"}));
  // Damaged photos stay, dated by their file time.
  EXPECT_EQ(photos[0]->creationDate()->timeIntervalSince1970, utcSeconds(2023, 1, 1, 0, 0, 0));
  EXPECT_EQ(file(photos[3]).path(), root + "/caf\xE9.jpg");

  FetchReport report = library->lastFetchReport();
  EXPECT_EQ(report.count(LibraryIssue::Kind::NotMedia), 2);
  EXPECT_EQ(report.count(LibraryIssue::Kind::Damaged), 2);
  EXPECT_EQ(report.count(LibraryIssue::Kind::UnreadableFile), 1);
  EXPECT_EQ(report.count(LibraryIssue::Kind::UnreadableFolder), 1);
  EXPECT_EQ(report.symlinksSkipped, 2);
  for (const auto& issue : report.issues) {
    EXPECT_FALSE(issue.reason.empty()) << issue.path;
    if (issue.kind == LibraryIssue::Kind::UnreadableFolder) {
      EXPECT_EQ(issue.path, root + "/closed");
    }
    if (issue.kind == LibraryIssue::Kind::UnreadableFile) {
      EXPECT_EQ(issue.path, root + "/locked.jpg");
    }
  }

  // Access restored: the file that could not be read is read now (it was never indexed).
  ASSERT_EQ(::chmod((root + "/locked.jpg").c_str(), 0644), 0);
  ASSERT_EQ(::chmod((root + "/closed").c_str(), 0755), 0);
  EXPECT_EQ(fetch(*library, MediaType::Image).size(), 6u);
  EXPECT_EQ(library->lastFetchReport().count(LibraryIssue::Kind::UnreadableFile), 0);
}

TEST_F(LibraryTest, MissingRootGivesNothingAndSaysWhy) {
  FolderPhotoLibraryOptions options;
  options.root = home.dir() / "no-such-folder";
  options.permissions = permissions;
  FolderPhotoLibrary library(std::move(options));
  EXPECT_EQ(library.fetchAssetsWithOptions(nullptr).count(), 0);
  FetchReport report = library.lastFetchReport();
  EXPECT_FALSE(report.rootOk);
  EXPECT_EQ(report.rootError, "No such file or directory");
}

TEST_F(LibraryTest, DamagedIndexIsStartedAfresh) {
  testing::writePhoto(root + "/a.jpg", {"2023:06:10 12:00:00"});
  std::string indexPath = indexPathFor(home.folders().cache(), root);
  testing::writeBytes(indexPath, std::vector<std::uint8_t>(4096, 'x'));
  EXPECT_EQ(fetch(*makeLibrary(), MediaType::Image).size(), 1u);
  reader->reads = 0;
  EXPECT_EQ(fetch(*makeLibrary(), MediaType::Image).size(), 1u);
  EXPECT_EQ(reader->reads.load(), 0);
}

TEST_F(LibraryTest, WithoutAuthorizedAccessNothingIsFetched) {
  testing::writePhoto(root + "/a.jpg", {"2023:06:10 12:00:00"});
  auto library = makeLibrary();
  for (auto status : {AuthorizationStatus::NotDetermined, AuthorizationStatus::Restricted,
                      AuthorizationStatus::Denied, AuthorizationStatus::Limited}) {
    permissions->set(PermissionKind::Photos, status);
    EXPECT_EQ(library->authorizationStatus(), status);
    EXPECT_EQ(library->fetchAssetsWithOptions(nullptr).count(), 0);
  }
  EXPECT_EQ(reader->reads.load(), 0);
}

// ---- Deletion ----

struct DeletionTest : LibraryTest {
  // Runs performChanges with a deletion of `assets` and waits for the completion.
  std::pair<bool, std::optional<platform::Error>> remove(FolderPhotoLibrary& library,
                                                         std::vector<platform::AssetPtr> assets) {
    std::atomic<bool> done{false};
    bool success = false, onMain = true;
    std::optional<platform::Error> error;
    library.performChanges(
        [assets](platform::ChangeRequest& request) { request.deleteAssets(assets); },
        [&](bool ok, std::optional<platform::Error> e) {
          success = ok;
          error = std::move(e);
          onMain = kit::isMainThread();
          done = true;
        });
    EXPECT_TRUE(env.standaloneLoop()->runUntil([&] { return done.load(); }, 30));
    EXPECT_FALSE(onMain);
    return {success, error};
  }

  std::string trashFiles() const { return home.folders().homeTrash() + "/files"; }
  std::string trashInfo() const { return home.folders().homeTrash() + "/info"; }

  ThreadedEnvironment env{nullptr, 2};
};

TEST_F(DeletionTest, DeletedFilesLandInTheTrashWithValidRecords) {
  testing::writePhoto(root + "/keep.jpg", {"2023:06:10 12:00:00"});
  testing::writePhoto(root + "/my photo 100%.jpg", {"2023:06:10 12:00:01"});
  testing::writePhoto(root + "/other/my photo 100%.jpg", {"2023:06:10 12:00:02"});
  auto library = makeLibrary();
  auto photos = fetch(*library, MediaType::Image);
  ASSERT_EQ(photos.size(), 3u);

  auto [ok, error] = remove(*library, {photos[1], photos[2], photos[1]});
  ASSERT_TRUE(ok) << (error ? error->localizedDescription : "");
  EXPECT_EQ(questions, std::vector<std::string>{"Allow Solvanta to delete 2 items?"});
  EXPECT_EQ(::access((root + "/my photo 100%.jpg").c_str(), F_OK), -1);
  EXPECT_EQ(::access((root + "/keep.jpg").c_str(), F_OK), 0);
  EXPECT_EQ(testing::listFolder(trashFiles()),
            (std::vector<std::string>{"my photo 100%.2.jpg", "my photo 100%.jpg"}));
  EXPECT_EQ(
      testing::listFolder(trashInfo()),
      (std::vector<std::string>{"my photo 100%.2.jpg.trashinfo", "my photo 100%.jpg.trashinfo"}));

  auto record = readWholeFile(trashInfo() + "/my photo 100%.jpg.trashinfo");
  ASSERT_TRUE(record);
  std::regex valid(
      "\\[Trash Info\\]\nPath=(.*)\nDeletionDate=\\d{4}-\\d{2}-\\d{2}T\\d{2}:\\d{2}:\\d{2}\n");
  std::smatch match;
  ASSERT_TRUE(std::regex_match(*record, match, valid)) << *record;
  EXPECT_EQ(match[1].str(), root + "/my%20photo%20100%25.jpg");
  auto second = readWholeFile(trashInfo() + "/my photo 100%.2.jpg.trashinfo");
  ASSERT_TRUE(second);
  EXPECT_NE(second->find("Path=" + root + "/other/my%20photo%20100%25.jpg\n"), std::string::npos);

  // A later fetch no longer sees them.
  EXPECT_EQ(names(fetch(*library, MediaType::Image)), std::vector<std::string>{"keep.jpg"});
}

TEST_F(DeletionTest, AFileWithSeveralNamesLeavesTheLibraryUnderEach) {
  testing::writePhoto(root + "/a.jpg", {"2023:06:10 12:00:00"});
  ASSERT_EQ(::link((root + "/a.jpg").c_str(), (root + "/b.jpg").c_str()), 0);
  ASSERT_EQ(::link((root + "/a.jpg").c_str(), (root + "/c.jpg").c_str()), 0);
  auto library = makeLibrary();
  auto photos = fetch(*library, MediaType::Image);
  ASSERT_EQ(photos.size(), 1u);
  // One name now holds another file: it stays.
  ASSERT_EQ(::unlink((root + "/c.jpg").c_str()), 0);
  testing::writePhoto(root + "/c.jpg", {"2023:06:11 12:00:00"});
  ASSERT_TRUE(remove(*library, photos).first);
  EXPECT_EQ(questions, std::vector<std::string>{"Allow Solvanta to delete 1 items?"});
  EXPECT_EQ(testing::listFolder(trashFiles()), (std::vector<std::string>{"a.jpg", "b.jpg"}));
  EXPECT_EQ(testing::listFolder(root), std::vector<std::string>{"c.jpg"});
}

TEST_F(DeletionTest, RefusalDeletesNothing) {
  testing::writePhoto(root + "/a.jpg", {"2023:06:10 12:00:00"});
  auto library = makeLibrary();
  answer = false;
  auto [ok, error] = remove(*library, fetch(*library, MediaType::Image));
  EXPECT_FALSE(ok);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, 3072);
  EXPECT_EQ(questions, std::vector<std::string>{"Allow Solvanta to delete 1 items?"});
  EXPECT_EQ(::access((root + "/a.jpg").c_str(), F_OK), 0);
  EXPECT_TRUE(testing::listFolder(trashFiles()).empty());
}

TEST_F(DeletionTest, FilesChangedOrGoneSinceTheFetchAreNotDeleted) {
  testing::writePhoto(root + "/a.jpg", {"2023:06:10 12:00:00"}, utcSeconds(2024, 1, 1, 0, 0, 0));
  testing::writePhoto(root + "/b.jpg", {"2023:06:10 12:00:01"}, utcSeconds(2024, 1, 1, 0, 0, 0));
  auto library = makeLibrary();
  auto photos = fetch(*library, MediaType::Image);
  ASSERT_EQ(photos.size(), 2u);

  // b.jpg is edited after the fetch.
  testing::writePhoto(root + "/b.jpg", {"2023:06:10 12:00:01"}, utcSeconds(2024, 1, 1, 0, 0, 9));
  auto [ok, error] = remove(*library, photos);
  EXPECT_FALSE(ok);
  ASSERT_TRUE(error);
  EXPECT_NE(error->localizedDescription.find(root + "/b.jpg changed"), std::string::npos)
      << error->localizedDescription;
  EXPECT_TRUE(questions.empty());
  EXPECT_EQ(::access((root + "/a.jpg").c_str(), F_OK), 0);
  EXPECT_EQ(::access((root + "/b.jpg").c_str(), F_OK), 0);

  // a.jpg is replaced by another file of the same name.
  photos = fetch(*library, MediaType::Image);
  ASSERT_EQ(::unlink((root + "/a.jpg").c_str()), 0);
  auto [ok2, error2] = remove(*library, {photos[0]});
  EXPECT_FALSE(ok2);
  ASSERT_TRUE(error2);
  EXPECT_NE(error2->localizedDescription.find(root + "/a.jpg is gone"), std::string::npos);
  EXPECT_TRUE(testing::listFolder(trashFiles()).empty());
}

TEST_F(DeletionTest, NothingToDeleteAsksNothingAndNoAccessDeletesNothing) {
  testing::writePhoto(root + "/a.jpg", {"2023:06:10 12:00:00"});
  auto library = makeLibrary();
  auto photos = fetch(*library, MediaType::Image);
  EXPECT_TRUE(remove(*library, {}).first);
  EXPECT_TRUE(questions.empty());

  permissions->set(PermissionKind::Photos, AuthorizationStatus::Denied);
  EXPECT_FALSE(remove(*library, photos).first);
  EXPECT_TRUE(questions.empty());
  EXPECT_EQ(::access((root + "/a.jpg").c_str(), F_OK), 0);
}

}  // namespace
}  // namespace desktop
