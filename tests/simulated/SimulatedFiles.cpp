// The bodies of platform/Files.h over the simulated disk.
#include <cerrno>
#include <utility>

#include "platform/Files.h"
#include "tests/simulated/SimulatedMachine.h"

namespace platform {
namespace {

using Kind = Disk::Kind;

Disk& TheDisk() { return SimulatedMachine::Current().disk; }

std::error_code Code(std::errc error) { return std::make_error_code(error); }

// No error for an entry of the kind wanted, be it a regular file or a folder.
std::error_code OpenError(const std::string& path, Kind wanted = Kind::regular) {
  const Disk::Node* node = TheDisk().Find(path);
  if (const auto error = TheDisk().FailureOf(path)) return error;
  if (node == nullptr) return Code(std::errc::no_such_file_or_directory);
  if (node->kind == wanted) return {};
  if (node->kind == Kind::link) return Code(std::errc::too_many_symbolic_link_levels);
  if (wanted == Kind::folder) return Code(std::errc::not_a_directory);
  return Code(node->kind == Kind::folder ? std::errc::is_a_directory : std::errc::no_such_device);
}

// Opens a regular file, or makes one.
std::error_code OpenOrMake(const std::string& path, unsigned mode) {
  const auto error = OpenError(path);
  return error == std::errc::no_such_file_or_directory ? TheDisk().Add(path, {.mode = mode}) : error;
}

}  // namespace

std::string TargetOf(const std::string& path) { return path; }

FileKind KindOf(const std::string& path) {
  const Disk::Node* node = TheDisk().Find(path);
  if (node == nullptr) return FileKind::absent;
  if (node->kind == Kind::regular) return FileKind::regular;
  return node->kind == Kind::folder ? FileKind::folder : FileKind::other;
}

std::optional<Time> CreationDate(const std::string& path) {
  const Disk::Node* node = TheDisk().Find(path);
  return node == nullptr ? std::nullopt : node->created;
}

std::optional<FileStamp> StampOf(const std::string& path) {
  const Disk::Node* node = TheDisk().Find(path);
  if (node == nullptr || node->kind != Kind::regular) return std::nullopt;
  return FileStamp{.number = node->id, .bytes = node->bytes.size()};
}

bool IsImmutable(const std::string& path) {
  const Disk::Node* node = TheDisk().Find(path);
  return node != nullptr && node->immutable;
}

Result<std::string> ReadFile(const std::string& path, std::uint64_t limitBytes) {
  if (const auto error = OpenError(path)) return error;
  const std::string& bytes = TheDisk().Find(path)->bytes;
  if (bytes.size() > limitBytes) return std::errc::file_too_large;
  return bytes;
}

std::error_code ReadPieces(const std::string& path, std::uint64_t limitBytes,
                           const std::function<void(std::string_view)>& take) {
  const auto bytes = ReadFile(path, limitBytes);
  if (bytes) take(*bytes);
  return bytes.Error();
}

std::error_code MakeFolders(const std::string& path) { return TheDisk().MakeFolders(path); }

std::error_code RemoveFile(const std::string& path) {
  const auto error = OpenError(path);
  if (error && (KindOf(path) != FileKind::other || TheDisk().FailureOf(path))) return error;
  TheDisk().Remove(path);
  return {};
}

std::error_code RemoveTree(const std::string& path) {
  if (const auto error = OpenError(path, Kind::folder)) return error;
  TheDisk().Remove(path);
  return {};
}

std::error_code SyncFolder(const std::string& path) {
  if (const auto error = OpenError(path, Kind::folder)) return error;
  const std::string folder = path + "/";
  for (const auto& name : TheDisk().Find(path)->names) TheDisk().Find(folder + name)->placed = true;
  return {};
}

struct Folder::Body {
  std::string path;
  std::vector<std::string> names;
  std::size_t next = 0;
};

Folder::Folder(std::unique_ptr<Body> body) : body_(std::move(body)) {}
Folder::Folder(Folder&&) noexcept = default;
Folder& Folder::operator=(Folder&&) noexcept = default;
Folder::~Folder() = default;

Result<Folder> Folder::Open(const std::string& path) {
  if (const auto error = OpenError(path, Kind::folder)) return error;
  return Folder(std::unique_ptr<Body>(new Body{path + "/", TheDisk().Find(path)->names}));
}
std::optional<std::string> Folder::Next() {
  std::string name;
  return Next(name) ? std::optional(name) : std::nullopt;
}
bool Folder::Next(std::string& name) {
  if (body_->next == body_->names.size()) return false;
  name = body_->names[body_->next++];
  return true;
}
std::error_code Folder::Error() const { return {}; }
FileKind Folder::KindOf(const std::string& name) const { return platform::KindOf(body_->path + name); }
std::optional<Time> Folder::CreationDate(const std::string& name) const {
  return platform::CreationDate(body_->path + name);
}
Result<std::string> Folder::Read(const std::string& name, std::uint64_t limitBytes) const {
  return ReadFile(body_->path + name, limitBytes);
}

struct NewFile::Body {
  std::string path;  // of the temporary file, gone once it is published
  Target target;
  ~Body() { TheDisk().Remove(path); }
};

NewFile::NewFile(std::unique_ptr<Body> body) : body_(std::move(body)) {}
NewFile::NewFile(NewFile&&) noexcept = default;
NewFile& NewFile::operator=(NewFile&&) noexcept = default;
NewFile::~NewFile() = default;

Result<NewFile> NewFile::Create(const std::string& folder, Target target) {
  if (const auto error = TheDisk().FailureOf(folder)) return error;
  std::string path = folder + "/.new";
  while (TheDisk().Find(path) != nullptr) path += "+";
  if (const auto error = TheDisk().Add(path, {})) return error;
  return NewFile(std::unique_ptr<Body>(new Body{path, target}));
}
void NewFile::TakeModeAndOwnerOf(const std::string& path) {
  if (!OpenError(path)) TheDisk().Find(body_->path)->mode = TheDisk().Find(path)->mode;
}
std::error_code NewFile::Write(std::string_view bytes) {
  if (TheDisk().full) return Code(std::errc::no_space_on_device);
  Disk::Node* node = TheDisk().Find(body_->path);
  node->synced = false;
  node->bytes += bytes;
  return {};
}
std::error_code NewFile::Sync() {
  TheDisk().Find(body_->path)->synced = true;
  return {};
}
std::error_code NewFile::Publish(const std::string& path) {
  if (body_->target == Target::absent && TheDisk().Find(path) != nullptr) return Code(std::errc::file_exists);
  return TheDisk().Rename(body_->path, path);
}

std::error_code RemoveLeftovers(const std::string& path, Time before) {
  if (const auto error = OpenError(path, Kind::folder)) return error;
  const std::string folder = path + "/";
  for (const auto& name : std::vector(TheDisk().Find(path)->names)) {
    const Disk::Node* node = TheDisk().Find(folder + name);
    if (name.starts_with(".new") && node->kind == Kind::regular && node->created < before)
      TheDisk().Remove(folder + name);
  }
  return {};
}

// The log is caught before it comes to a file.
struct OutputFile::Body {};
OutputFile::OutputFile(OutputFile&&) noexcept = default;
OutputFile& OutputFile::operator=(OutputFile&&) noexcept = default;
OutputFile::~OutputFile() = default;
Result<OutputFile> OutputFile::Open(const std::string& /*path*/, bool /*append*/) { return std::errc::not_supported; }
bool OutputFile::Write(std::string_view /*bytes*/) { return false; }

struct FileLock::Body {
  State state;
  int errorNumber;
  std::string path = {};
  std::uint64_t id = 0;

  ~Body() {
    if (Disk::Node* node = Held()) node->locked = false;
  }
  // Null also when another file has taken the place of the locked one.
  [[nodiscard]] Disk::Node* Held() const {
    Disk::Node* node = TheDisk().Find(path);
    return state == State::held && node != nullptr && node->id == id ? node : nullptr;
  }
};

FileLock::FileLock(std::unique_ptr<Body> body) : body_(std::move(body)) {}
FileLock::FileLock(FileLock&&) noexcept = default;
FileLock& FileLock::operator=(FileLock&&) noexcept = default;
FileLock::~FileLock() = default;

FileLock FileLock::Try(const std::string& path) {
  const auto error = OpenOrMake(path, 0644);
  if (error) return FileLock(std::unique_ptr<Body>(new Body{State::notCreated, error.value()}));
  Disk::Node* node = TheDisk().Find(path);
  if (std::exchange(node->locked, true)) {
    return FileLock(std::unique_ptr<Body>(new Body{State::notLocked, EWOULDBLOCK}));
  }
  return FileLock(std::unique_ptr<Body>(new Body{State::held, 0, path, node->id}));
}
FileLock::State FileLock::state() const { return body_->state; }
int FileLock::errorNumber() const { return body_->errorNumber; }
bool FileLock::MoveTo(const std::string& path) {
  if (body_->Held() == nullptr || TheDisk().Find(path) != nullptr || TheDisk().Rename(body_->path, path)) return false;
  body_->path = path;
  return true;
}
void FileLock::RemoveAndRelease() {
  if (body_->Held() != nullptr) TheDisk().Remove(body_->path);
}

struct FolderLock::Body {};
FolderLock::FolderLock(const std::string& /*folder*/) {}
FolderLock::~FolderLock() = default;

}  // namespace platform
