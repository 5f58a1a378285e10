#include "app/entry.h"

namespace zunto {

int runHelper(ApplicationLoop& application, const DelegateFactory& makeDelegate) {
  const std::shared_ptr<HelperDelegate> delegate = makeDelegate(fixedAddresses());
  application.setDelegate(delegate);
  application.setActivationPolicy(ActivationPolicy::regular);
  application.run();
  return 0;
}

}  // namespace zunto
