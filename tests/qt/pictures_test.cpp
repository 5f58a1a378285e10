// The form as it looks in its main states, light and dark, beside pictures of it that are kept.
//
// Each minor version of Qt draws the same form a little differently, so each has its own pictures. Font,
// style, colours and scale are the test's own. Who has changed the look keeps it by ZUNTO_KEEP_PICTURES=1.
#include <gtest/gtest.h>

#include <QDir>
#include <QFont>
#include <QFontDatabase>
#include <QLibraryInfo>
#include <QPushButton>
#include <QStyleFactory>
#include <QVersionNumber>
#include <string>
#include <tuple>

#include "platform/qt/qt_color_scheme.h"
#include "platform/qt/qt_colors.h"
#include "tests/qt/form_world.h"
#include "tests/qt/picture.h"
#include "tests/qt/private_bus.h"
#include "tests/qt/settings_portal.h"

namespace zunto::testing {
namespace {

enum class Scheme { light, dark };

std::string nameOf(Scheme scheme) { return scheme == Scheme::dark ? "dark" : "light"; }

void PrintTo(Scheme scheme, std::ostream* out) { *out << nameOf(scheme); }

class FormPicture : private TestScreen, public QtTest {
 protected:
  FormPicture() : TestScreen(QSize(1280, 900), 1) {
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setCursorFlashTime(0);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPixelSize(13);
    font.setHintingPreference(QFont::PreferNoHinting);
    font.setStyleStrategy(QFont::NoSubpixelAntialias);
    QApplication::setFont(font);
  }

  void SetUp() override {
    ASSERT_TRUE(QFontDatabase::families().contains(QStringLiteral("DejaVu Sans")))
        << "the font is missing that the pictures are drawn with: fonts-dejavu-core";
  }

  void use(Scheme scheme) {
    const bool isWanted = scheme == Scheme::dark;
    portal.setScheme(isWanted ? SettingsPortal::preferDark : SettingsPortal::preferLight);
    ASSERT_TRUE(runUntil([isWanted] { return isDark(QApplication::palette()) == isWanted; }));
  }

  QImage take(FormWindow& window) {
    window.open();
    EXPECT_TRUE(runUntil([&window] { return window.native->isActiveWindow(); }));
    runTurns();
    return window.native->grab().toImage().convertToFormat(QImage::Format_RGB32);
  }

  PrivateBus bus;
  SettingsPortal portal{bus.connect()};
  QtColorScheme colors{bus.connect()};
};

class FormPictures : public ::testing::WithParamInterface<std::tuple<FormState, Scheme>>, public FormPicture {
 protected:
  static std::string name() {
    return zunto::testing::nameOf(std::get<0>(GetParam())) + "-" + nameOf(std::get<1>(GetParam()));
  }
  static QDir keptFolder() {
    const QVersionNumber version = QLibraryInfo::version();
    return QDir(QStringLiteral(ZUNTO_KEPT_PICTURES "/qt%1.%2")
                    .arg(version.majorVersion())
                    .arg(version.minorVersion()));
  }
  static QString save(const QImage& picture, const QDir& folder, const std::string& name) {
    const QString path = folder.filePath(toQString(name + ".png"));
    constexpr int smallest = 0;
    EXPECT_TRUE(folder.mkpath(QStringLiteral(".")) && picture.save(path, "PNG", smallest))
        << fromQString(path);
    return path;
  }
};

TEST_P(FormPictures, LookAsTheyAreKept) {
  use(std::get<1>(GetParam()));
  FormWindow window;
  show(window.form, std::get<0>(GetParam()));
  const QImage seen = take(window);
  if (qEnvironmentVariableIsSet("ZUNTO_KEEP_PICTURES")) save(seen, keptFolder(), name());
  const QString kept = keptFolder().filePath(toQString(name() + ".png"));
  const PictureDifference difference = differenceOf(seen, QImage(kept));
  if (difference.pixels <= mostDifferentPixels) return;
  const QDir folder(QStringLiteral(ZUNTO_SEEN_PICTURES));
  FAIL() << difference.pixels << " pixels are not as they are kept.\nKept: " << fromQString(kept)
         << "\nSeen: " << fromQString(save(seen, folder, name()))
         << "\nDifference: " << fromQString(save(difference.picture, folder, name() + "-difference"))
         << "\nA new look is kept by: ZUNTO_KEEP_PICTURES=1 ./test FormPictures";
}

INSTANTIATE_TEST_SUITE_P(States, FormPictures,
                         ::testing::Combine(::testing::ValuesIn(allFormStates),
                                            ::testing::Values(Scheme::light, Scheme::dark)),
                         [](const auto& each) {
                           return zunto::testing::nameOf(std::get<0>(each.param)) + "_" +
                                  nameOf(std::get<1>(each.param));
                         });

TEST_F(FormPicture, IsTheSameEachTime) {
  use(Scheme::light);
  QImage first;
  {
    FormWindow window;
    show(window.form, FormState::working);
    first = take(window);
  }
  FormWindow window;
  show(window.form, FormState::working);
  EXPECT_EQ(differenceOf(take(window), first).pixels, 0);
}

TEST_F(FormPicture, IsAnotherWhenOneControlHasMovedBy3Pixels) {
  use(Scheme::light);
  FormWindow window;
  show(window.form, FormState::working);
  const QImage before = take(window);
  for (QWidget* each : window.controls()) {
    each->move(each->pos() + QPoint(3, 0));
    EXPECT_FALSE(looksLike(window.native->grab().toImage(), before)) << each->metaObject()->className();
    each->move(each->pos() - QPoint(3, 0));
  }
  EXPECT_TRUE(looksLike(window.native->grab().toImage(), before));
}

TEST_F(FormPicture, IsAnotherWhenOneColorIsAnotherShade) {
  use(Scheme::light);
  FormWindow window;
  show(window.form, FormState::working);
  const QImage before = take(window);
  for (const QPalette::ColorRole role :
       {QPalette::Window, QPalette::WindowText, QPalette::Base, QPalette::Button, QPalette::Highlight}) {
    QPalette changed = window.native->palette();
    for (const auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
      constexpr QRgb shade = 0x202020;
      changed.setColor(group, role, QColor::fromRgb(changed.color(group, role).rgb() ^ shade));
    }
    window.native->setPalette(changed);
    EXPECT_FALSE(looksLike(window.native->grab().toImage(), before)) << role;
    window.native->setPalette(QPalette());
  }
  EXPECT_TRUE(looksLike(window.native->grab().toImage(), before));
}

}  // namespace
}  // namespace zunto::testing
