// The address book on the real desktop services: a vdir of generated contacts (one .vcf each,
// a same-name pair every fifty cards) read by the contact list as a person opens it (both
// passes, as the screen runs them when it loads and appears: read, parse, format the name,
// group same names), against `khard list` on the same folder. And the same-name pass alone
// at 10,000 and 100,000 contacts, to show it grows linearly.
//
//   cmake --build --preset release --target contacts_bench && build/release/bench/contacts_bench
//
// SOLVANTA_BENCH_CONTACTS sets the size of the compared book (default 10000). khard (Debian
// package khard) is given a configuration of its own in the scratch folder; the page cache is
// warm for every contender alike.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <string>

#include "BenchSupport.h"
#include "contacts/ContactVC.h"
#include "desktop/Platform.h"
#include "SecretSpaceWindow.h"
#include "kit/ProgressHUD.h"
#include "sim/Environment.h"

namespace {

using Clock = std::chrono::steady_clock;

bench::ScratchFolder& scratch() {
  static bench::ScratchFolder folder("contacts_bench");
  return folder;
}

int gCompared = 10000;
std::map<int, std::string> gBooks;  // contacts -> folder
double gScreen = 0, gKhard = 0;
std::map<int, double> gPass;  // contacts -> seconds of one same-name pass

void keepBest(double& best, double seconds) {
  if (best == 0 || seconds < best) best = seconds;
}

const char* const kGiven[] = {"Ann", "Bo", "Carla", "Dev", "Eino", "Fatima", "Goran", "Hiroshi", "Ines", "Jonas"};
const char* const kFamily[] = {"Lee", "Ek", "Moreno", "Patel", "Virtanen", "Haddad", "Novak", "Sato", "Costa", "Berg"};

// Writes `count` cards: the n-th is "<given> <family> n", but every fiftieth repeats the name
// of the card before it, so one contact in fifty has a namesake.
std::string writeBook(int count) {
  std::string dir = scratch().fresh("book" + std::to_string(count));
  for (int i = 0; i < count; ++i) {
    int n = (i % 50 == 49) ? i - 1 : i;
    std::string given = kGiven[n % 10], family = std::string(kFamily[(n / 10) % 10]) + std::to_string(n);
    std::ofstream out(dir + "/c" + std::to_string(i) + ".vcf", std::ios::binary);
    out << "BEGIN:VCARD\r\nVERSION:3.0\r\nUID:bench-" << i << "\r\nN:" << family << ";" << given << ";;;\r\nFN:" << given
        << " " << family << "\r\nTEL;TYPE=CELL:+1 555 " << (100000 + i) << "\r\nEMAIL:c" << i
        << "@example.org\r\nEND:VCARD\r\n";
    if (!out) return {};
  }
  return dir;
}

// The desktop services on a fresh home whose address book is `book`, contacts access granted.
struct Desktop {
  explicit Desktop(const std::string& book) {
    std::string home = scratch().fresh("home");
    desktop::PlatformOptions options;
    options.folders = desktop::AppFolders{home, home + "/.config", home + "/.local/share", home + "/.cache"};
    options.contactsRoot = book;
    options.permissionPrompt = [](desktop::PermissionKind) { return platform::AuthorizationStatus::Authorized; };
    options.confirmPrompt = [](const std::string&) { return false; };
    platform = std::make_unique<desktop::Platform>(options);
  }
  sim::Environment env;
  std::unique_ptr<desktop::Platform> platform;
};

// The contact list opened from the hub, until both passes of its load and its appearance are
// done. Returns the seconds, or -1 when the list does not show every contact.
double openListOnce(const std::string& book, int count) {
  Desktop world(book);
  bench::SecretSpaceWindow hub;
  world.env.runUntilIdle();
  auto list = hub.board.instantiate<contacts::ContactVC>("ContactVC");
  list->isFrom = "duplicate";
  auto start = Clock::now();
  hub.nav->pushViewController(list, false);
  world.env.runUntilIdle();
  double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  kit::ProgressHUD::shared().dismiss();
  // Each of the two loads appends the whole book to the list.
  if (static_cast<int>(list->filteredData.load()->size()) != 2 * count) return -1;
  return seconds;
}

// One same-name pass over `count` contacts. Returns its seconds, or -1 when the groups are
// not one per fifty contacts.
double duplicatePassOnce(const std::string& book, int count) {
  Desktop world(book);
  auto list = std::make_shared<contacts::ContactVC>();
  auto start = Clock::now();
  list->findDuplicates();
  world.env.runUntilIdle();
  double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  kit::ProgressHUD::shared().dismiss();
  if (static_cast<int>(list->duplicateData.load()->size()) != count / 50) return -1;
  return seconds;
}

void BM_OpenContactList(benchmark::State& state) {
  for (auto _ : state) {
    double seconds = openListOnce(gBooks[gCompared], gCompared);
    if (seconds < 0) {
      state.SkipWithError("the list did not show every contact");
      return;
    }
    keepBest(gScreen, seconds);
  }
}

void BM_KhardList(benchmark::State& state) {
  if (std::system("command -v khard >/dev/null 2>&1") != 0) {
    state.SkipWithError("khard is not installed (Debian package khard)");
    return;
  }
  std::string config = scratch().fresh("khard") + "/khard.conf";
  {
    std::ofstream out(config);
    out << "[addressbooks]\n[[bench]]\npath = " << gBooks[gCompared] << "\n[general]\ndefault_action = list\n";
  }
  std::string command = "khard -c '" + config + "' list >/dev/null 2>&1";
  for (auto _ : state) {
    auto start = Clock::now();
    int rc = std::system(command.c_str());
    keepBest(gKhard, std::chrono::duration<double>(Clock::now() - start).count());
    if (rc != 0) {
      state.SkipWithError("khard list failed");
      return;
    }
  }
}

void BM_DuplicatePass(benchmark::State& state) {
  int count = static_cast<int>(state.range(0));
  for (auto _ : state) {
    double seconds = duplicatePassOnce(gBooks[count], count);
    if (seconds < 0) {
      state.SkipWithError("the same-name groups are wrong");
      return;
    }
    auto& best = gPass[count];
    keepBest(best, seconds);
  }
}

BENCHMARK(BM_OpenContactList)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();
BENCHMARK(BM_KhardList)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();
BENCHMARK(BM_DuplicatePass)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  if (const char* env = std::getenv("SOLVANTA_BENCH_CONTACTS"); env && std::atoi(env) > 0) gCompared = std::atoi(env);
  for (int count : {gCompared, 10000, 100000}) {
    if (gBooks.count(count)) continue;
    std::fprintf(stderr, "Writing an address book of %d contacts...\n", count);
    gBooks[count] = writeBook(count);
    if (gBooks[count].empty()) {
      std::fprintf(stderr, "contacts_bench: cannot write the address book\n");
      return 1;
    }
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();

  // The list reads the book four times (two passes on load, two on appearing); khard once.
  // Both rates count the contacts of the book once, so ours is the conservative one.
  std::printf("\nSummary (best of each):\n");
  if (gScreen > 0)
    std::printf("  contact list, %d contacts:  %8.3f s  %9.0f contacts/s\n", gCompared, gScreen, gCompared / gScreen);
  if (gKhard > 0)
    std::printf("  khard list, %d contacts:    %8.3f s  %9.0f contacts/s\n", gCompared, gKhard, gCompared / gKhard);
  if (gScreen > 0 && gKhard > 0) {
    double ratio = gKhard / gScreen;
    std::printf("  list vs khard: %.1fx (goal: at least 10x) %s\n", ratio, ratio >= 10 ? "met" : "NOT MET");
  }
  for (const auto& [count, seconds] : gPass)
    if (seconds > 0) std::printf("  same-name pass, %6d contacts: %8.3f s  %6.2f us/contact\n", count, seconds, 1e6 * seconds / count);
  if (gPass[10000] > 0 && gPass[100000] > 0)
    std::printf("  per-contact cost at 100,000 over 10,000: %.2f (1 is linear)\n",
                (gPass[100000] / 100000) / (gPass[10000] / 10000));

  if (gScreen > 0) std::printf("figure: contacts_per_s %.0f 1/s\n", gCompared / gScreen);
  if (gKhard > 0) std::printf("figure: khard_contacts_per_s %.0f 1/s\n", gCompared / gKhard);
  if (gScreen > 0 && gKhard > 0) std::printf("figure: contacts_over_khard %.1f x\n", gKhard / gScreen);
  if (gPass[10000] > 0) std::printf("figure: duplicate_pass_10k_us_per_contact %.2f us\n", 1e6 * gPass[10000] / 10000);
  if (gPass[100000] > 0) std::printf("figure: duplicate_pass_100k_us_per_contact %.2f us\n", 1e6 * gPass[100000] / 100000);
  return 0;
}
