// The local log: everything the processor prints. The helper itself writes nothing to it.
#include "app/helper_delegate.h"

namespace zunto {

std::filesystem::path HelperDelegate::logFileURL() {
  const std::filesystem::path folder = capabilities_.host.homeFolder() / "Library" / "Logs" / "ZUNTO Helper";
  capabilities_.fileSystem.createFolder(folder);
  std::filesystem::path file = folder / "helper.log";
  // A failure shows when the file is opened.
  if (!capabilities_.fileSystem.exists(file)) capabilities_.fileSystem.createFile(file);
  return file;
}

void HelperDelegate::revealLogFile() {
  try {
    capabilities_.workspace.reveal(logFileURL());
  } catch (const SystemError&) {
    // Without a log there is nothing to show, and an alert about a log would hide what it was asked for.
  }
}

}  // namespace zunto
