#import "platform/appkit/app_kit_dialogs.h"

#import <Cocoa/Cocoa.h>

#include <utility>

#import "platform/appkit/retained.h"
#import "platform/appkit/text.h"

namespace zunto {
namespace {

/// Quitting, logging out and the end of the session do not wait for an answer: the system would otherwise
/// refuse to terminate the program as long as the dialog stands.
void letTheProgramEndUnder(NSWindow* dialog) { [dialog setPreventsApplicationTerminationWhenModal:NO]; }

std::size_t runAlert(const Alert& alert) {
  const auto native = Retained<NSAlert>::adopt([[NSAlert alloc] init]);
  [native.get() setAlertStyle:NSAlertStyleWarning];
  [native.get() setMessageText:toNSString(alert.messageText).get()];
  [native.get() setInformativeText:toNSString(alert.informativeText).get()];
  for (const std::string& title : alert.buttons) {
    [native.get() addButtonWithTitle:toNSString(title).get()];
  }
  letTheProgramEndUnder([native.get() window]);
  const NSInteger button = [native.get() runModal] - NSAlertFirstButtonReturn;
  // An alert that was stopped without a button answers outside the buttons' range.
  if (button < 0 || static_cast<std::size_t>(button) >= alert.buttons.size()) return 0;
  return static_cast<std::size_t>(button);
}

std::optional<std::filesystem::path> runSavePanel(const SavePanel& panel) {
  const Retained<NSSavePanel> native([NSSavePanel savePanel]);
  [native.get() setTitle:toNSString(panel.title).get()];
  [native.get() setNameFieldStringValue:toNSString(panel.suggestedName).get()];
  [native.get() setCanCreateDirectories:panel.canCreateFolders];
  letTheProgramEndUnder(native.get());
  if ([native.get() runModal] != NSModalResponseOK) return std::nullopt;
  NSURL* location = [native.get() URL];
  if (location == nil) return std::nullopt;
  return std::filesystem::path(toUtf8([location path]));
}

}  // namespace

void AppKitAlertPresenter::showAlert(const Alert& alert, std::function<void(std::size_t button)> answered) {
  clock_.post([alert, answered = std::move(answered)] { answered(runAlert(alert)); });
}

void AppKitSavePanelPresenter::showSavePanel(
    const SavePanel& panel, std::function<void(std::optional<std::filesystem::path>)> chosen) {
  clock_.post([panel, chosen = std::move(chosen)] { chosen(runSavePanel(panel)); });
}

}  // namespace zunto
