#include "platform/qt/qt_startup_notice.h"

#include <xcb/xcb.h>

#include <QGuiApplication>
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace zunto {

namespace {

struct Freed {
  // NOLINTNEXTLINE(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory): as XCB makes its replies
  void operator()(void* reply) const { std::free(reply); }
};

xcb_atom_t atomCalled(xcb_connection_t* x11, std::string_view name) {
  const auto request = xcb_intern_atom(x11, 0, static_cast<std::uint16_t>(name.size()), name.data());
  const std::unique_ptr<xcb_intern_atom_reply_t, Freed> reply(xcb_intern_atom_reply(x11, request, nullptr));
  return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

/// Tells everybody who listens to the root window, in pieces, as the desktops have agreed on.
void broadcast(xcb_connection_t* x11, const std::string& text) {
  const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(x11)).data->root;
  xcb_client_message_event_t piece{};
  piece.response_type = XCB_CLIENT_MESSAGE;
  piece.format = 8;
  piece.type = atomCalled(x11, "_NET_STARTUP_INFO_BEGIN");
  // The pieces of one text are known by a window that is nobody else's.
  piece.window = xcb_generate_id(x11);
  xcb_create_window(x11, XCB_COPY_FROM_PARENT, piece.window, root, 0, 0, 1, 1, 0, XCB_WINDOW_CLASS_INPUT_ONLY,
                    XCB_COPY_FROM_PARENT, 0, nullptr);
  const std::size_t whole = text.size() + 1;  // with the NUL that ends it
  for (std::size_t sent = 0; sent < whole; sent += sizeof piece.data.data8) {
    std::ranges::fill(piece.data.data8, std::uint8_t{0});
    text.copy(reinterpret_cast<char*>(piece.data.data8), sizeof piece.data.data8,
              std::min(sent, text.size()));
    xcb_send_event(x11, 0, root, XCB_EVENT_MASK_PROPERTY_CHANGE, reinterpret_cast<const char*>(&piece));
    piece.type = atomCalled(x11, "_NET_STARTUP_INFO");
  }
  xcb_destroy_window(x11, piece.window);
  xcb_flush(x11);
}

}  // namespace

void endStartupNotice(const std::string& name) {
  // Qt's picture of a display that is none has the interface, too, without a server behind it.
  if (name.empty() || QGuiApplication::platformName() != QLatin1String("xcb")) return;
  const auto* display = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  if (display == nullptr) return;
  std::string quoted;
  for (const char character : name) {
    if (character == '"' || character == '\\') quoted += '\\';
    quoted += character;
  }
  broadcast(display->connection(), "remove: ID=\"" + quoted + "\"");
}

}  // namespace zunto
