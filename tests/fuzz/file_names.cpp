// The file name that the processor proposes: whatever it is, what the save panel shows is the name of a file.
#include <algorithm>
#include <string>

#include "import/media_texts.h"
#include "property.h"
#include "protocol/text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace zunto;
  using zunto::fuzz::require;
  const std::string proposal(fuzz::textOf(data, size));
  const std::string name = suggestedFileName(proposal);
  require(!name.empty() && name != "." && name != "..", "a name is one of a file");
  require(name.size() <= 255, "a name fits the file system");
  require(name.find('/') == std::string::npos, "a name leads to no other folder");
  require(std::none_of(name.begin(), name.end(), [](char c) { return (c >= 0 && c < 0x20) || c == 0x7F; }),
          "a name has no control characters");
  if (!isUtf8(proposal)) return 0;  // which no record holds
  require(isUtf8(name), "a name is cut between characters");
  require(suggestedFileName(name) == name, "a name that was suggested stays as it is");
  return 0;
}
