#include "app/helper_delegate.h"

#include <chrono>
#include <utility>

#include "app/helper_status.h"

namespace zunto {

namespace {

constexpr std::chrono::seconds healthInterval{5};

}  // namespace

HelperDelegate::HelperDelegate(FixedAddresses addresses, const Capabilities& capabilities,
                               WindowFactory makeWindow)
    : addresses_(std::move(addresses)), capabilities_(capabilities), makeWindow_(std::move(makeWindow)) {}

void HelperDelegate::applicationDidFinishLaunching() {
  mainThread_.check("applicationDidFinishLaunching");
  buildStatusMenu();
  downloaderWindow = makeWindow_(makeEnsureHelper());
  capabilities_.urlEvents.setHandler([weak = weak_from_this()](const UrlEvent& event) {
    if (const auto self = weak.lock()) self->handleURLWithEvent(event);
  });
  if (downloaderWindow) downloaderWindow->present(std::nullopt);
  startHealthTimer();
}

void HelperDelegate::applicationWillTerminate() {
  mainThread_.check("applicationWillTerminate");
  if (healthTimer) healthTimer->invalidate();
  capabilities_.urlEvents.removeHandler();
  stopProcessor();
}

EnsureHelper HelperDelegate::makeEnsureHelper() {
  return [weak = weak_from_this()] {
    // The coroutine takes what it needs as an argument: it outlives a closure.
    return [](std::weak_ptr<HelperDelegate> delegate) -> Task<bool> {
      const std::shared_ptr<HelperDelegate> self = delegate.lock();
      if (!self) co_return false;
      co_return co_await self->startIfNeeded(false);
    }(weak);
  };
}

// A tick, too, holds the delegate only while it probes: one that starts after the delegate's end does
// nothing.
void HelperDelegate::startHealthTimer() {
  const auto tick = [weak = weak_from_this(), &executor = capabilities_.executor] {
    executor.spawn([](std::weak_ptr<HelperDelegate> delegate) -> Task<void> {
      const std::shared_ptr<HelperDelegate> self = delegate.lock();
      if (self) co_await self->refreshHealth();
    }(weak));
  };
  healthTimer.emplace(capabilities_.executor.clock(), healthInterval, tick);
}

void HelperDelegate::spawn(Task<void> body) {
  capabilities_.executor.spawn(keepingAlive(shared_from_this(), std::move(body)));
}

std::shared_ptr<MenuItem> HelperDelegate::menuItem(std::string title, Command command,
                                                   std::optional<char> keyEquivalent) {
  auto action = [weak = weak_from_this(), command] {
    if (const auto self = weak.lock()) (*self.*command)();
  };
  return std::make_shared<MenuItem>(std::move(title), std::move(action), keyEquivalent);
}

void HelperDelegate::buildStatusMenu() {
  statusItem = capabilities_.statusBar.makeStatusItem();
  statusItem->setButtonTitle(std::string(idleBarTitle));
  statusMenuItem = std::make_shared<MenuItem>(std::string(startingStatusLine));
  statusMenuItem->setEnabled(false);
  toggleMenuItem = menuItem("Stop Helper", &HelperDelegate::toggleHelper);

  auto menu = std::make_shared<Menu>();
  menu->addItem(statusMenuItem);
  menu->addItem(MenuItem::separator());
  menu->addItem(menuItem("Open Video Import", &HelperDelegate::openVideoImport, 'o'));
  menu->addItem(menuItem("Open Downloader", &HelperDelegate::openDownloader, 'd'));
  menu->addItem(toggleMenuItem);
  menu->addItem(menuItem("Show Local Log", &HelperDelegate::showLog, 'l'));
  menu->addItem(MenuItem::separator());
  menu->addItem(menuItem("Quit ZUNTO Helper", &HelperDelegate::quit, 'q'));
  statusItem->setMenu(std::move(menu));
}

void HelperDelegate::openVideoImport() {
  mainThread_.check("openVideoImport");
  capabilities_.workspace.openWebAddress(addresses_.videoImportPageURL.absoluteString());
}

void HelperDelegate::openDownloader() {
  mainThread_.check("openDownloader");
  if (downloaderWindow) downloaderWindow->present(std::nullopt);
}

// The child decides, never the item's title: a child that hangs is stopped although the title says "Start
// Helper".
void HelperDelegate::toggleHelper() {
  mainThread_.check("toggleHelper");
  if (ownChildRuns()) {
    stopProcessor();
    return;
  }
  spawn([](HelperDelegate& self) -> Task<void> {
    static_cast<void>(co_await self.startIfNeeded(false));
  }(*this));
}

void HelperDelegate::showLog() {
  mainThread_.check("showLog");
  revealLogFile();
}

void HelperDelegate::quit() {
  mainThread_.check("quit");
  stopProcessor();
  capabilities_.application.terminate();
}

}  // namespace zunto
