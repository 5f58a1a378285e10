#include "async/main_thread.h"

#include <string>

#include "async/fatal.h"

namespace zunto {

void MainThread::check(std::string_view entryPoint) const noexcept {
  if (std::this_thread::get_id() != id_) {
    fatalError(std::string(entryPoint) + " was called off the main thread");
  }
}

}  // namespace zunto
