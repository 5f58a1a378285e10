#include "tests/fakes/fake_file_system.h"

#include <algorithm>
#include <deque>
#include <utility>

#include "platform/system_error.h"

namespace zunto::testing {
namespace {

constexpr int maximumLinks = 40;
constexpr std::size_t maximumName = 255;

std::string describe(std::errc error) { return std::make_error_code(error).message(); }

std::string quotedName(const std::filesystem::path& path) {
  return '"' + (path.has_filename() ? path : path.parent_path()).filename().string() + '"';
}

SystemError failure(const std::string& subject, const std::string& reason) {
  return SystemError(subject + ": " + reason + ".");
}

bool isWithin(const std::filesystem::path& path, const std::filesystem::path& folder) {
  return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

}  // namespace

void FakeOpenFile::write(std::string_view bytes) {
  std::string& contents = file->contents;
  contents.resize(std::max(contents.size(), position + bytes.size()), '\0');
  std::copy(bytes.begin(), bytes.end(), contents.begin() + static_cast<std::ptrdiff_t>(position));
  position += bytes.size();
}

FakeOutputFile::FakeOutputFile(std::string quotedFileName, int descriptor,
                               std::shared_ptr<FakeOpenFile> openFile)
    : quotedName_(std::move(quotedFileName)), descriptor_(descriptor), openFile_(std::move(openFile)) {}

void FakeOutputFile::seekToEnd() {
  const std::string subject = "The end of the file " + quotedName_ + " could not be found";
  if (!openFile_) throw failure(subject, describe(std::errc::bad_file_descriptor));
  if (seekFailure_) throw failure(subject, *seekFailure_);
  openFile_->position = openFile_->file->contents.size();
}

void FakeOutputFile::close() {
  if (!std::exchange(openFile_, nullptr)) return;
  descriptor_ = -1;
  if (closeFailure_) throw failure("The file " + quotedName_ + " could not be closed", *closeFailure_);
}

bool FakeFileSystem::exists(const std::filesystem::path& path) const {
  return find(path, LastLink::followed).error == std::errc{};
}

bool FakeFileSystem::isExecutableFile(const std::filesystem::path& path) const {
  const std::shared_ptr<FakeFileData> file = fileData(path);
  return file && file->isExecutable;
}

bool FakeFileSystem::isFolder(const std::filesystem::path& path) const {
  const Node* node = nodeAt(path);
  return node && std::holds_alternative<Folder>(*node);
}

std::shared_ptr<FakeFileData> FakeFileSystem::fileData(const std::filesystem::path& path) const {
  const Node* node = nodeAt(path);
  const auto* file = node ? std::get_if<std::shared_ptr<FakeFileData>>(node) : nullptr;
  return file ? *file : nullptr;
}

std::optional<std::string> FakeFileSystem::contents(const std::filesystem::path& path) const {
  const std::shared_ptr<FakeFileData> file = fileData(path);
  return file ? std::optional(file->contents) : std::nullopt;
}

void FakeFileSystem::createFolder(const std::filesystem::path& path) {
  std::filesystem::path prefix;
  for (const std::filesystem::path& component : path) {
    prefix /= component;
    if (isFolder(prefix)) continue;
    const std::string subject = "The folder " + quotedName(prefix) + " could not be made";
    const Place place = find(prefix, LastLink::kept);
    if (place.error == std::errc{}) throw failure(subject, describe(std::errc::file_exists));
    if (place.error != std::errc::no_such_file_or_directory) throw failure(subject, describe(place.error));
    if (const auto reason = refusalAt(place.path)) throw failure(subject, *reason);
    nodes_.insert_or_assign(place.path, Folder{});
  }
}

bool FakeFileSystem::createFile(const std::filesystem::path& path) {
  const Place place = find(path, LastLink::followed);
  if (place.error == std::errc{}) return !isFolder(path);
  if (!place.parentExists || refusalAt(place.path)) return false;
  nodes_.insert_or_assign(place.path, std::make_shared<FakeFileData>());
  return true;
}

void FakeFileSystem::removeFile(const std::filesystem::path& path) {
  const std::string subject = quotedName(path) + " could not be removed";
  const Place place = find(path, LastLink::kept);
  if (place.error != std::errc{}) throw failure(subject, describe(place.error));
  if (const auto reason = refusalAt(place.path)) throw failure(subject, *reason);
  if (std::holds_alternative<Folder>(nodes_.at(place.path))) {
    throw failure(subject, describe(std::errc::is_a_directory));
  }
  nodes_.erase(place.path);
}

void FakeFileSystem::requireSavable(const std::filesystem::path& path) {
  const std::string subject = "The file could not be saved as " + quotedName(path);
  const Place place = find(path, LastLink::kept);
  if (place.error == std::errc::not_a_directory) throw failure(subject, describe(place.error));
  if (path.filename().string().size() > maximumName) {
    throw failure(subject, describe(std::errc::filename_too_long));
  }
  if (isFolder(path)) throw failure(subject, describe(std::errc::is_a_directory));
  if (place.error == std::errc{} && !exists(path)) {
    throw failure(subject, "A link that leads nowhere has that name");
  }
  const std::string noFile = "No file could be made in the folder " + quotedName(path.parent_path());
  if (!isFolder(path.parent_path())) {
    throw failure(noFile, describe(std::errc::no_such_file_or_directory));
  }
  if (const auto reason = refusalAt(place.path)) throw failure(noFile, *reason);
}

std::unique_ptr<OutputFile> FakeFileSystem::openForWriting(const std::filesystem::path& path) {
  const std::string subject = "The file " + quotedName(path) + " could not be opened";
  const Place place = find(path, LastLink::followed);
  if (place.error != std::errc{}) throw failure(subject, describe(place.error));
  if (isFolder(place.path)) throw failure(subject, describe(std::errc::is_a_directory));
  if (const auto reason = refusalAt(place.path)) throw failure(subject, *reason);
  if (!fileData(place.path)) throw failure(subject, "It is not a regular file");
  auto openFile = std::make_shared<FakeOpenFile>(FakeOpenFile{fileData(place.path), 0});
  auto file = std::make_unique<FakeOutputFile>(quotedName(path), nextDescriptor_++, std::move(openFile));
  if (seekRefusal_) file->failSeek(*seekRefusal_);
  return file;
}

void FakeFileSystem::addFolder(const std::filesystem::path& path) {
  std::filesystem::path prefix;
  for (const std::filesystem::path& component : path) {
    prefix /= component;
    if (!isFolder(prefix)) nodes_.insert_or_assign(find(prefix, LastLink::followed).path, Folder{});
  }
}

void FakeFileSystem::addFile(const std::filesystem::path& path, std::string contents) {
  add(path, std::make_shared<FakeFileData>(FakeFileData{std::move(contents), false}));
}

void FakeFileSystem::addExecutable(const std::filesystem::path& path) {
  addFile(path);
  fileData(path)->isExecutable = true;
}

void FakeFileSystem::addLink(const std::filesystem::path& path, std::filesystem::path target) {
  add(path, Link{std::move(target)});
}

void FakeFileSystem::addPipe(const std::filesystem::path& path) { add(path, Pipe{}); }

void FakeFileSystem::add(const std::filesystem::path& path, Node node) {
  addFolder(path.parent_path());
  removeTree(path);
  nodes_.insert_or_assign(find(path, LastLink::kept).path, std::move(node));
}

void FakeFileSystem::removeTree(const std::filesystem::path& path) {
  const Place place = find(path, LastLink::kept);
  if (place.error != std::errc{}) return;
  std::erase_if(nodes_, [&](const auto& entry) { return isWithin(entry.first, place.path); });
}

void FakeFileSystem::refuse(const std::filesystem::path& path, std::string reason) {
  refusals_.insert_or_assign(path.lexically_normal(), std::move(reason));
}

FakeFileSystem::Place FakeFileSystem::find(const std::filesystem::path& path, LastLink lastLink) const {
  std::deque<std::filesystem::path> rest(path.begin(), path.end());
  std::filesystem::path at = "/";
  int links = 0;
  while (!rest.empty()) {
    const std::filesystem::path component = std::move(rest.front());
    rest.pop_front();
    if (component.empty() || component == "." || component == "/") continue;
    if (!std::holds_alternative<Folder>(nodes_.at(at))) return {at, std::errc::not_a_directory};
    if (component == "..") {
      at = at.parent_path();
      continue;
    }
    const auto node = nodes_.find(at / component);
    if (node == nodes_.end()) return {at / component, std::errc::no_such_file_or_directory, rest.empty()};
    const auto* link = std::get_if<Link>(&node->second);
    if (link && (!rest.empty() || lastLink == LastLink::followed)) {
      if (++links > maximumLinks) return {node->first, std::errc::too_many_symbolic_link_levels};
      rest.insert(rest.begin(), link->target.begin(), link->target.end());
      if (link->target.is_absolute()) at = "/";
    } else {
      at = node->first;
    }
  }
  return {at};
}

const FakeFileSystem::Node* FakeFileSystem::nodeAt(const std::filesystem::path& path) const {
  const Place place = find(path, LastLink::followed);
  return place.error == std::errc{} ? &nodes_.at(place.path) : nullptr;
}

bool FakeFileSystem::hasChildren(const std::filesystem::path& folder) const {
  return std::any_of(nodes_.begin(), nodes_.end(), [&](const auto& entry) {
    return entry.first != folder && isWithin(entry.first, folder);
  });
}

std::optional<std::string> FakeFileSystem::refusalAt(const std::filesystem::path& path) const {
  for (const auto& [refused, reason] : refusals_) {
    if (isWithin(path, refused)) return reason;
  }
  return std::nullopt;
}

}  // namespace zunto::testing
