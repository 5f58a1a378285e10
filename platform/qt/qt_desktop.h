// Small services of the desktop: clipboard, beep, opening and revealing.
//
// Owner: the program's entry; outlives the logic. Thread: main thread only.
#pragma once

#include <QDBusConnection>
#include <QMessageBox>
#include <memory>
#include <optional>

#include "platform/beeper.h"
#include "platform/pasteboard.h"
#include "platform/workspace.h"

namespace zunto {

class QtPasteboard final : public Pasteboard {
 public:
  [[nodiscard]] std::optional<std::string> plainText() const override;
};

class QtBeeper final : public Beeper {
 public:
  void beep() override;
};

class QtWorkspace final : public Workspace {
 public:
  /// `bus` is none where there is no session bus: revealing then opens the folder.
  explicit QtWorkspace(std::optional<QDBusConnection> bus);
  /// An answer of the file viewer that is still under way is dropped.
  ~QtWorkspace() override;

  void openWebAddress(const std::string& url) override;
  /// Where there is no file viewer, opens the folder with whatever shows folders, and where nothing does,
  /// says where the location is.
  void reveal(const std::filesystem::path& location) override;

 private:
  class Replies;

  void openFolder(const std::filesystem::path& location);
  void sayWhere(const std::filesystem::path& location);

  std::optional<QDBusConnection> bus_;
  std::unique_ptr<QMessageBox> notice_;
  std::unique_ptr<Replies> replies_;
};

/// The file address of an absolute path, every byte that is not plain percent-encoded.
[[nodiscard]] std::string fileAddress(const std::filesystem::path& path);

}  // namespace zunto
