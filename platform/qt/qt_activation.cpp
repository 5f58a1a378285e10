#include "platform/qt/qt_activation.h"

#include <QByteArray>
#include <QtGlobal>

#include "platform/qt/qt_display.h"

namespace zunto {

namespace {

/// Where Qt looks for it, and takes it out.
constexpr const char* tokenVariable = "XDG_ACTIVATION_TOKEN";

}  // namespace

QtActivation::QtActivation(const std::string& token)
    : isSet_(!token.empty() && currentDisplay() == QtDisplay::wayland) {
  if (isSet_) qputenv(tokenVariable, QByteArray::fromStdString(token));
}

QtActivation::~QtActivation() {
  if (isSet_) qunsetenv(tokenVariable);
}

bool QtActivation::isGranted() { return !qEnvironmentVariableIsEmpty(tokenVariable); }

}  // namespace zunto
