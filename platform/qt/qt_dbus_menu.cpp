#include "platform/qt/qt_dbus_menu.h"

#include <QDBusArgument>
#include <QDBusError>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <utility>

#include "platform/qt/qt_text.h"

namespace zunto {

namespace {

/// The menu itself; its items are numbered from 1.
constexpr int rootIdentifier = 0;

constexpr uint protocolVersion = 3;
/// The menu's shape never changes.
constexpr uint layoutRevision = 1;

struct ItemProperties {
  int identifier = 0;
  QVariantMap properties;
};

struct RemovedProperties {
  int identifier = 0;
  QStringList names;
};

struct LayoutNode {
  int identifier = 0;
  QVariantMap properties;
  QList<LayoutNode> children;
};

struct ItemEvent {
  int identifier = 0;
  QString name;
  QDBusVariant data;
  uint time = 0;
};

QDBusArgument& operator<<(QDBusArgument& out, const ItemProperties& item) {
  out.beginStructure();
  out << item.identifier << item.properties;
  out.endStructure();
  return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, ItemProperties& item) {
  in.beginStructure();
  in >> item.identifier >> item.properties;
  in.endStructure();
  return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const RemovedProperties& item) {
  out.beginStructure();
  out << item.identifier << item.names;
  out.endStructure();
  return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, RemovedProperties& item) {
  in.beginStructure();
  in >> item.identifier >> item.names;
  in.endStructure();
  return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const LayoutNode& node) {
  out.beginStructure();
  out << node.identifier << node.properties;
  out.beginArray(QMetaType::fromType<QDBusVariant>());
  for (const LayoutNode& child : node.children) out << QDBusVariant(QVariant::fromValue(child));
  out.endArray();
  out.endStructure();
  return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, LayoutNode& node) {
  in.beginStructure();
  in >> node.identifier >> node.properties;
  in.beginArray();
  while (!in.atEnd()) {
    QDBusVariant child;
    in >> child;
    node.children.append(qdbus_cast<LayoutNode>(child.variant()));
  }
  in.endArray();
  in.endStructure();
  return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const ItemEvent& event) {
  out.beginStructure();
  out << event.identifier << event.name << event.data << event.time;
  out.endStructure();
  return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, ItemEvent& event) {
  in.beginStructure();
  in >> event.identifier >> event.name >> event.data >> event.time;
  in.endStructure();
  return in;
}

/// Registering again changes nothing.
void registerTypes() {
  qDBusRegisterMetaType<ItemProperties>();
  qDBusRegisterMetaType<QList<ItemProperties>>();
  qDBusRegisterMetaType<RemovedProperties>();
  qDBusRegisterMetaType<QList<RemovedProperties>>();
  qDBusRegisterMetaType<LayoutNode>();
  qDBusRegisterMetaType<ItemEvent>();
  qDBusRegisterMetaType<QList<ItemEvent>>();
  qDBusRegisterMetaType<QList<int>>();
  qDBusRegisterMetaType<QList<QStringList>>();
}

QVariantMap menuProperties() {
  return {{QStringLiteral("Version"), QVariant::fromValue(protocolVersion)},
          {QStringLiteral("TextDirection"), QStringLiteral("ltr")},
          {QStringLiteral("Status"), QStringLiteral("normal")},
          {QStringLiteral("IconThemePath"), QStringList()}};
}

/// Menus on the bus mark mnemonics by an underscore.
QString label(const MenuItem& item) {
  return toQString(item.title()).replace(QLatin1Char('_'), QLatin1String("__"));
}

constexpr const char* menuDescription = R"xml(
  <interface name="com.canonical.dbusmenu">
    <property name="Version" type="u" access="read"/>
    <property name="TextDirection" type="s" access="read"/>
    <property name="Status" type="s" access="read"/>
    <property name="IconThemePath" type="as" access="read"/>
    <method name="GetLayout">
      <arg type="i" direction="in"/><arg type="i" direction="in"/><arg type="as" direction="in"/>
      <arg type="u" direction="out"/><arg type="(ia{sv}av)" direction="out"/>
    </method>
    <method name="GetGroupProperties">
      <arg type="ai" direction="in"/><arg type="as" direction="in"/><arg type="a(ia{sv})" direction="out"/>
    </method>
    <method name="GetProperty">
      <arg type="i" direction="in"/><arg type="s" direction="in"/><arg type="v" direction="out"/>
    </method>
    <method name="Event">
      <arg type="i" direction="in"/><arg type="s" direction="in"/>
      <arg type="v" direction="in"/><arg type="u" direction="in"/>
    </method>
    <method name="EventGroup"><arg type="a(isvu)" direction="in"/><arg type="ai" direction="out"/></method>
    <method name="AboutToShow"><arg type="i" direction="in"/><arg type="b" direction="out"/></method>
    <method name="AboutToShowGroup">
      <arg type="ai" direction="in"/><arg type="ai" direction="out"/><arg type="ai" direction="out"/>
    </method>
    <signal name="ItemsPropertiesUpdated"><arg type="a(ia{sv})"/><arg type="a(ias)"/></signal>
    <signal name="LayoutUpdated"><arg type="u"/><arg type="i"/></signal>
  </interface>
)xml";

}  // namespace

QtDBusMenu::QtDBusMenu(QDBusConnection bus, const QString& path, std::shared_ptr<const Menu> menu,
                       Choose choose)
    : menu_(std::move(menu)),
      choose_(std::move(choose)),
      object_(std::move(bus), path,
              {.interface = QStringLiteral("com.canonical.dbusmenu"),
               .description = QString::fromLatin1(menuDescription),
               .properties = menuProperties,
               .call = [this](const QDBusMessage& call, const QDBusConnection& from) {
                 return answer(call, from);
               }}) {
  registerTypes();
  if (!menu_) return;
  int identifier = rootIdentifier;
  for (const std::shared_ptr<MenuItem>& each : menu_->items()) {
    ++identifier;
    changes_.push_back(each->observe([this, identifier] { itemChanged(identifier); }));
  }
}

std::shared_ptr<MenuItem> QtDBusMenu::item(int identifier) const {
  const bool isThere =
      menu_ && identifier > rootIdentifier && static_cast<std::size_t>(identifier) <= menu_->items().size();
  return isThere ? menu_->items()[static_cast<std::size_t>(identifier) - 1] : nullptr;
}

QVariantMap QtDBusMenu::properties(int identifier) const {
  if (identifier == rootIdentifier) return {{QStringLiteral("children-display"), QStringLiteral("submenu")}};
  const std::shared_ptr<MenuItem> shown = item(identifier);
  if (!shown) return {};
  if (shown->isSeparator()) return {{QStringLiteral("type"), QStringLiteral("separator")}};
  QVariantMap result{{QStringLiteral("label"), label(*shown)},
                     {QStringLiteral("enabled"), shown->isEnabled()},
                     {QStringLiteral("visible"), true}};
  if (const std::optional<char> key = shown->keyEquivalent()) {
    // The protocol names keys in upper case.
    const QList<QStringList> shortcut{
        {QStringLiteral("Control"), QString(QChar::fromLatin1(*key)).toUpper()}};
    result[QStringLiteral("shortcut")] = QVariant::fromValue(shortcut);
  }
  return result;
}

void QtDBusMenu::itemChanged(int identifier) {
  const QList<ItemProperties> updated{{identifier, properties(identifier)}};
  object_.emitSignal(QStringLiteral("ItemsPropertiesUpdated"),
                     {QVariant::fromValue(updated), QVariant::fromValue(QList<RemovedProperties>())});
}

bool QtDBusMenu::answer(const QDBusMessage& call, const QDBusConnection& bus) {
  const QString request = call.member() + QLatin1Char(' ') + call.signature();
  const QVariantList arguments = call.arguments();
  QVariantList reply;
  if (request == QLatin1String("GetLayout iias")) {
    reply = layout(arguments);
  } else if (request == QLatin1String("GetGroupProperties aias")) {
    reply = groupProperties(arguments);
  } else if (request == QLatin1String("GetProperty is")) {
    const QVariant value = properties(arguments[0].toInt()).value(arguments[1].toString());
    if (!value.isValid()) {
      bus.send(call.createErrorReply(QDBusError::InvalidArgs, QStringLiteral("No such property.")));
      return true;
    }
    reply = {QVariant::fromValue(QDBusVariant(value))};
  } else if (request == QLatin1String("Event isvu")) {
    // Answered first: what the user chose may end the program.
    bus.send(call.createReply());
    static_cast<void>(happened(arguments[0].toInt(), arguments[1].toString()));
    return true;
  } else if (request == QLatin1String("EventGroup a(isvu)")) {
    reply = happenedToGroup(arguments);
  } else if (request == QLatin1String("AboutToShow i")) {
    reply = {false};
  } else if (request == QLatin1String("AboutToShowGroup ai")) {
    reply = {QVariant::fromValue(QList<int>()), QVariant::fromValue(QList<int>())};
  } else {
    return false;
  }
  bus.send(call.createReply(reply));
  return true;
}

QVariantList QtDBusMenu::layout(const QVariantList& arguments) const {
  const int parent = arguments[0].toInt();
  const bool hasChildren = parent == rootIdentifier && arguments[1].toInt() != 0 && menu_;
  LayoutNode node{parent, properties(parent), {}};
  if (hasChildren) {
    for (int i = 1; i <= static_cast<int>(menu_->items().size()); ++i) {
      node.children.append({i, properties(i), {}});
    }
  }
  return {QVariant::fromValue(layoutRevision), QVariant::fromValue(node)};
}

QVariantList QtDBusMenu::groupProperties(const QVariantList& arguments) const {
  auto identifiers = qdbus_cast<QList<int>>(arguments[0]);
  if (identifiers.isEmpty() && menu_) {
    // None asked for means all.
    for (int i = rootIdentifier; i <= static_cast<int>(menu_->items().size()); ++i) identifiers.append(i);
  }
  QList<ItemProperties> result;
  for (const int identifier : identifiers) {
    const QVariantMap found = properties(identifier);
    if (!found.isEmpty()) result.append({identifier, found});
  }
  return {QVariant::fromValue(result)};
}

bool QtDBusMenu::happened(int identifier, const QString& event) const {
  if (identifier == rootIdentifier) return true;
  const std::shared_ptr<MenuItem> chosen = item(identifier);
  if (!chosen) return false;
  if (event == QLatin1String("clicked")) choose_(*chosen);
  return true;
}

QVariantList QtDBusMenu::happenedToGroup(const QVariantList& arguments) const {
  QList<int> unknown;
  for (const ItemEvent& event : qdbus_cast<QList<ItemEvent>>(arguments[0])) {
    if (!happened(event.identifier, event.name)) unknown.append(event.identifier);
  }
  return {QVariant::fromValue(unknown)};
}

}  // namespace zunto
