// first_paint COMMAND [ARG ...]: starts a program and waits, by the X server's events alone, until its first
// large window has been painted. Prints "MILLISECONDS PID" then, leaves the program running until standard
// input ends, and then ends it. The time runs from just before the program is started.
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/damage.h>
#include <xcb/xcb.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

namespace {

using Clock = std::chrono::steady_clock;
using Event = std::unique_ptr<xcb_generic_event_t, decltype(&std::free)>;

constexpr std::chrono::seconds limit{20};
constexpr std::uint32_t smallestWidth = 200;
constexpr std::uint32_t smallestHeight = 150;

/// The windows that appear on the screen, each with what has been drawn in it.
class Screen {
 public:
  Screen() : connection_(xcb_connect(nullptr, nullptr), &xcb_disconnect) {
    if (xcb_connection_has_error(connection()) != 0) fail("the display cannot be reached");
    const xcb_query_extension_reply_t* damage = xcb_get_extension_data(connection(), &xcb_damage_id);
    if (damage == nullptr || damage->present == 0) fail("the display reports no drawing");
    damageEvent_ = damage->first_event;
    xcb_damage_query_version(connection(), 1, 1);
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection())).data->root;
    windowManager_ = findWindowManager();
    const std::uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(connection(), root_, XCB_CW_EVENT_MASK, &events);
    // Answered only when all of that has taken effect.
    std::free(xcb_get_input_focus_reply(connection(), xcb_get_input_focus(connection()), nullptr));
  }

  /// Waits until at least half of a window that is neither an icon nor a tool tip has been drawn.
  [[nodiscard]] bool waitForPaint(Clock::time_point end) {
    for (;;) {
      while (const Event event{xcb_poll_for_event(connection()), &std::free}) {
        if (isPaint(*event)) return true;
      }
      if (xcb_connection_has_error(connection()) != 0) fail("the display has gone");
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
      if (left <= 0) return false;
      pollfd news{xcb_get_file_descriptor(connection()), POLLIN, 0};
      ::poll(&news, 1, static_cast<int>(left));
    }
  }

  [[noreturn]] static void fail(const char* why) {
    std::fprintf(stderr, "first_paint: %s\n", why);
    std::exit(2);
  }

 private:
  [[nodiscard]] xcb_connection_t* connection() const { return connection_.get(); }

  bool isPaint(const xcb_generic_event_t& event) {
    const int type = event.response_type & 0x7F;
    if (type == XCB_CREATE_NOTIFY) {
      const xcb_window_t window = reinterpret_cast<const xcb_create_notify_event_t&>(event).window;
      if (!isFrame(window)) watch(window);
      return false;
    }
    if (type != damageEvent_ + XCB_DAMAGE_NOTIFY) return false;
    const auto& drawn = reinterpret_cast<const xcb_damage_notify_event_t&>(event);
    const std::uint32_t width = drawn.geometry.width;
    const std::uint32_t height = drawn.geometry.height;
    if (width < smallestWidth || height < smallestHeight) return false;
    return 2U * drawn.area.width * drawn.area.height >= width * height;
  }

  /// The window in which the window manager shows itself; 0 where there is none.
  [[nodiscard]] xcb_window_t findWindowManager() const {
    constexpr const char* name = "_NET_SUPPORTING_WM_CHECK";
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> atom{
        xcb_intern_atom_reply(
            connection(),
            xcb_intern_atom(connection(), 0, static_cast<std::uint16_t>(std::strlen(name)), name), nullptr),
        &std::free};
    if (!atom) return 0;
    const std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> property{
        xcb_get_property_reply(connection(),
                               xcb_get_property(connection(), 0, root_, atom->atom, XCB_ATOM_WINDOW, 0, 1),
                               nullptr),
        &std::free};
    if (!property || xcb_get_property_value_length(property.get()) != sizeof(xcb_window_t)) return 0;
    return *static_cast<const xcb_window_t*>(xcb_get_property_value(property.get()));
  }

  /// The window manager draws a frame before the program has drawn anything. Each client's windows have
  /// numbers of a range of its own.
  [[nodiscard]] bool isFrame(xcb_window_t window) const {
    const std::uint32_t mask = xcb_get_setup(connection())->resource_id_mask;
    return windowManager_ != 0 && (window & ~mask) == (windowManager_ & ~mask);
  }

  void watch(xcb_window_t window) {
    xcb_damage_create(connection(), xcb_generate_id(connection()), window,
                      XCB_DAMAGE_REPORT_LEVEL_BOUNDING_BOX);
    xcb_flush(connection());
  }

  std::unique_ptr<xcb_connection_t, decltype(&xcb_disconnect)> connection_;
  xcb_window_t root_ = 0;
  xcb_window_t windowManager_ = 0;
  int damageEvent_ = 0;
};

/// Politely first, within two seconds.
void end(pid_t pid) {
  ::kill(pid, SIGTERM);
  for (int waited = 0; waited < 200; ++waited) {
    if (::waitpid(pid, nullptr, WNOHANG) == pid) return;
    ::usleep(10'000);
  }
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) Screen::fail("usage: first_paint COMMAND [ARG ...]");
  Screen screen;
  pid_t pid = 0;
  const Clock::time_point start = Clock::now();
  if (::posix_spawnp(&pid, argv[1], nullptr, nullptr, argv + 1, environ) != 0)
    Screen::fail("it cannot be started");
  const bool painted = screen.waitForPaint(start + limit);
  const std::chrono::duration<double, std::milli> taken = Clock::now() - start;
  if (painted) {
    std::printf("%.3f %d\n", taken.count(), static_cast<int>(pid));
    std::fflush(stdout);
    char ignored = 0;
    while (::read(STDIN_FILENO, &ignored, 1) > 0) continue;
  }
  end(pid);
  if (!painted) Screen::fail("no window was painted");
  return 0;
}
