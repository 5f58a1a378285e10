#include "platform/qt/qt_color_scheme.h"

#include <QApplication>
#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusServiceWatcher>
#include <QEvent>
#include <QMap>
#include <QObject>
#include <QPalette>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>
#include <QWidget>
#include <functional>
#include <utility>

#include "platform/qt/qt_colors.h"

namespace zunto {

namespace {

constexpr QLatin1String portalName("org.freedesktop.portal.Desktop");
constexpr QLatin1String portalPath("/org/freedesktop/portal/desktop");
constexpr QLatin1String settingsInterface("org.freedesktop.portal.Settings");
constexpr QLatin1String appearance("org.freedesktop.appearance");
constexpr QLatin1String gnomeAccessibility("org.gnome.desktop.a11y.interface");

/// What the user has set for the whole desktop.
struct ColorWish {
  enum class Scheme { any, dark, light };

  Scheme scheme = Scheme::any;
  bool highContrast = false;

  bool operator==(const ColorWish&) const = default;
};

using Settings = QMap<QString, QVariantMap>;

ColorWish readWish(const Settings& settings) {
  constexpr uint preferDark = 1;
  constexpr uint preferLight = 2;
  constexpr uint moreContrast = 1;
  const QVariantMap shared = settings.value(appearance);
  const uint scheme = shared.value(QStringLiteral("color-scheme")).toUInt();
  ColorWish wish;
  if (scheme == preferDark) wish.scheme = ColorWish::Scheme::dark;
  if (scheme == preferLight) wish.scheme = ColorWish::Scheme::light;
  wish.highContrast = shared.value(QStringLiteral("contrast")).toUInt() == moreContrast ||
                      settings.value(gnomeAccessibility).value(QStringLiteral("high-contrast")).toBool();
  return wish;
}

bool fulfils(const QPalette& palette, const ColorWish& wish) {
  const bool isRightScheme =
      wish.scheme == ColorWish::Scheme::any || isDark(palette) == (wish.scheme == ColorWish::Scheme::dark);
  return isRightScheme && (!wish.highContrast || isHighContrast(palette));
}

struct Grounds {
  QRgb window;
  QRgb base;
  QRgb button;
  QRgb text;
  QRgb highlight;
  QRgb link;
};

constexpr Grounds darkGrounds{0xff2a2a2e, 0xff1e1e22, 0xff3a3a40, 0xffeeeeee, 0xff2f65c8, 0xff7db2ff};
constexpr Grounds lightGrounds{0xfff2f2f2, 0xffffffff, 0xfff2f2f2, 0xff1e1e1e, 0xff2f65c8, 0xff1a55b8};
constexpr Grounds blackGrounds{0xff000000, 0xff000000, 0xff000000, 0xffffffff, 0xff1f6fff, 0xffa0c8ff};
constexpr Grounds whiteGrounds{0xffffffff, 0xffffffff, 0xffffffff, 0xff000000, 0xff0033aa, 0xff0033aa};

const Grounds& groundsFor(bool dark, bool highContrast) {
  if (highContrast) return dark ? blackGrounds : whiteGrounds;
  return dark ? darkGrounds : lightGrounds;
}

QPalette makePalette(const Grounds& grounds) {
  // Qt derives the shades of edges from the two.
  QPalette palette(QColor::fromRgb(grounds.button), QColor::fromRgb(grounds.window));
  const QColor text = QColor::fromRgb(grounds.text);
  for (const QPalette::ColorRole role :
       {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::ToolTipText}) {
    palette.setColor(role, text);
  }
  palette.setColor(QPalette::Base, QColor::fromRgb(grounds.base));
  palette.setColor(QPalette::AlternateBase, QColor::fromRgb(grounds.window));
  palette.setColor(QPalette::ToolTipBase, QColor::fromRgb(grounds.button));
  palette.setColor(QPalette::Highlight, QColor::fromRgb(grounds.highlight));
  palette.setColor(QPalette::HighlightedText, Qt::white);
  palette.setColor(QPalette::Link, QColor::fromRgb(grounds.link));
  // Faint, for readableDisabledTexts() to make them as strong as they have to be.
  for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
    palette.setColor(QPalette::Disabled, role, QColor::fromRgb(grounds.button));
  }
  palette.setResolveMask(~QPalette::ResolveMask(0));
  return palette;
}

}  // namespace

/// Knows what the user has set, as far as the portal has said.
class QtColorScheme::Portal {
 public:
  Portal(QDBusConnection bus, std::function<void()> changed)
      : bus_(std::move(bus)),
        changed_(std::move(changed)),
        presence_(portalName, bus_, QDBusServiceWatcher::WatchForRegistration) {
    news_.setSingleShot(true);
    QObject::connect(&news_, &QTimer::timeout, &context_, [this] { ask(); });
    QObject::connect(&presence_, &QDBusServiceWatcher::serviceRegistered, &news_, [this] { news_.start(); });
    // Of any sender: for a named one Qt would wait until the bus has said who that is.
    bus_.connect(QString(), portalPath, settingsInterface, QStringLiteral("SettingChanged"), &news_,
                 SLOT(start()));
    ask();
  }

  [[nodiscard]] const ColorWish& wish() const { return wish_; }

 private:
  /// A portal that does not run yet is not started: it could take long, and says so when it comes.
  void ask() {
    QDBusMessage call =
        QDBusMessage::createMethodCall(portalName, portalPath, settingsInterface, QStringLiteral("ReadAll"));
    call.setAutoStartService(false);
    call << QStringList{appearance, gnomeAccessibility};
    auto watcher = std::make_unique<QDBusPendingCallWatcher>(bus_.asyncCall(call), &context_);
    QObject::connect(watcher.get(), &QDBusPendingCallWatcher::finished, &context_,
                     [this](QDBusPendingCallWatcher* finished) {
                       finished->deleteLater();
                       hear(finished->reply());
                     });
    static_cast<void>(watcher.release());  // its parent owns it
  }

  void hear(const QDBusMessage& reply) {
    if (reply.signature() != QLatin1String("a{sa{sv}}")) return;
    const ColorWish wish = readWish(qdbus_cast<Settings>(reply.arguments().front()));
    if (wish == std::exchange(wish_, wish)) return;
    changed_();
  }

  QDBusConnection bus_;
  std::function<void()> changed_;
  ColorWish wish_;
  QDBusServiceWatcher presence_;
  QTimer news_;      ///< a turn after the portal has come or has reported a change
  QObject context_;  ///< replies that are under way end with it
};

/// Is told of new colours as every window is, and is never shown.
class QtColorScheme::ThemeWatch final : public QWidget {
 public:
  explicit ThemeWatch(std::function<void()> changed) {
    news_.setSingleShot(true);
    QObject::connect(&news_, &QTimer::timeout, this, std::move(changed));
  }

  /// Changes made by `change` are no news.
  void mute(const std::function<void()>& change) {
    isMuted_ = true;
    change();
    isMuted_ = false;
  }

 protected:
  void changeEvent(QEvent* event) override {
    if (event->type() == QEvent::PaletteChange && !isMuted_) news_.start();
    QWidget::changeEvent(event);
  }

 private:
  bool isMuted_ = false;
  QTimer news_;
};

QtColorScheme::QtColorScheme(std::optional<QDBusConnection> bus)
    : theme_(std::make_unique<ThemeWatch>([this] { apply(); })) {
  if (bus) portal_ = std::make_unique<Portal>(*std::move(bus), [this] { apply(); });
  apply();
}

QtColorScheme::~QtColorScheme() {
  theme_.reset();
  QApplication::setPalette(QPalette());
}

void QtColorScheme::apply() {
  const ColorWish wish = portal_ ? portal_->wish() : ColorWish();
  theme_->mute([&wish] {
    QApplication::setPalette(QPalette());
    QPalette palette = QApplication::palette();
    const bool isThemes = fulfils(palette, wish);
    if (!isThemes) {
      const bool dark =
          wish.scheme == ColorWish::Scheme::any ? isDark(palette) : wish.scheme == ColorWish::Scheme::dark;
      palette = makePalette(groundsFor(dark, wish.highContrast));
    }
    const QPalette readable = readableDisabledTexts(palette);
    // Of the theme's colours only the faint ones are set: the others go on following the theme.
    QApplication::setPalette(isThemes ? readable : readable.resolve(palette));
  });
}

}  // namespace zunto
