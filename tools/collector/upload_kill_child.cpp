// The child of the at-least-once test: logs events numbered from START, writes each number to
// COMMITTED once its row is committed, and uploads to HOST between events, until it is killed.
// With --drain it logs nothing and uploads until nothing waits, then exits 0 (1 if something
// still waits after a minute).
//
//   upload_kill_child FOLDER HOST COMMITTED START COUNT [--drain]
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "collector/UploadClient.h"
#include "desktop/threaded/ThreadedEnvironment.h"
#include "kit/Singleton.h"
#include "sim/Platform.h"

int main(int argc, char** argv) {
  if (argc < 6) {
    std::fprintf(stderr, "usage: upload_kill_child FOLDER HOST COMMITTED START COUNT [--drain]\n");
    return 2;
  }
  bool drain = argc > 6 && std::strcmp(argv[6], "--drain") == 0;
  desktop::ThreadedEnvironment env;
  kit::resetSingletonsForTesting();
  sim::Platform platform;
  collector::UploadClient client({argv[1], argv[2], {}});
  if (drain) return client.drain(60) ? 0 : 1;

  int committed = ::open(argv[3], O_WRONLY | O_CREAT | O_APPEND, 0600);
  if (committed < 0) return 2;
  long long start = std::atoll(argv[4]);
  long long count = std::atoll(argv[5]);
  for (long long seq = start; seq < start + count; ++seq) {
    client.log("kill_event", {{"seq", APMValue::fromInt64(seq)}});
    std::string line = std::to_string(seq) + "\n";
    if (::write(committed, line.data(), line.size()) != static_cast<ssize_t>(line.size())) return 2;
    if (seq % 4 == 3) client.uploadOnce(5);
  }
  client.uploadOnce(5);
  ::close(committed);
  return 0;
}
