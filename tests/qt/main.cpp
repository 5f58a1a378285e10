// The Qt backend is tested without a display and apart from the user's session.
#include <gtest/gtest.h>

#include <QByteArray>
#include <QtGlobal>

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  // An address where no bus is: without any, the bus library would look for one on the display.
  qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
  qunsetenv("XDG_RUNTIME_DIR");
  qunsetenv("XDG_ACTIVATION_TOKEN");
  qunsetenv("DESKTOP_STARTUP_ID");
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
