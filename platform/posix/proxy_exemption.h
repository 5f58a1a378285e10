// Keeps a proxy of the environment from standing between this program and its own processor.
//
// The health probe, the processor and the processor's tools inherit the environment and look there for a
// proxy; one that is asked for an address of this machine answers for another machine, or not at all.
#pragma once

#include <string>

namespace zunto {

/// Adds `host` to the hosts that this program's environment exempts from proxies, keeping those that are
/// there. `no_proxy` and `NO_PROXY` are both set afterwards. Throws SystemError.
///
/// Main thread, before anything else runs: the environment has no lock, and what has been read of it already
/// stays as it was.
void exemptFromProxies(const std::string& host);

}  // namespace zunto
