// libFuzzer target: any bytes as a flow file. Parsing either gives a flow or a located
// syntax error; it never crashes, hangs or throws anything else. runFlow paths resolve under
// a folder that does not exist, so no file is read.
#include <cstddef>
#include <cstdint>
#include <string>

#include "flow/FlowFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    flow::Flow flow = flow::parseFlow("/nonexistent-flow-folder/fuzz.yaml", text);
    (void)flow;
  } catch (const flow::FlowSyntaxError& e) {
    if (e.located().empty()) __builtin_trap();
  }
  return 0;
}
