#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include "platform/Clock.h"
#include "platform/Result.h"

// Guarded access to files in folders that others can write to. Paths are bytes, absolute or relative to the working
// directory; "~" means nothing here. No call blocks on a FIFO or reads more than its limit. A symbolic link in the last
// component is not followed, but for what is looked at or read: there an ordinary user's own link to something of their
// own stands for what it leads to, and for nothing when it leads nowhere. Any thread; an object belongs to one thread
// at a time.
namespace platform {

// What may be read of a report, and of everything smaller: events, preferences, marker files.
inline constexpr std::uint64_t reportLimitBytes = std::uint64_t{64} << 20U;
inline constexpr std::uint64_t smallFileLimitBytes = std::uint64_t{4} << 20U;

// A link that is not followed is `other`.
enum class FileKind { absent, regular, folder, other };

[[nodiscard]] FileKind KindOf(const std::string& path);
// The file to replace in order to change the one at `path`: where a link leads that is followed, else `path`, also when
// the link leads into a folder that is missing.
[[nodiscard]] std::string TargetOf(const std::string& path);
[[nodiscard]] std::optional<Time> CreationDate(const std::string& path);
// What a regular file and its content are known by: no other file has the same, nor this one once it is written to.
struct FileStamp {
  std::uint64_t device = 0;
  std::uint64_t number = 0;  // on that device
  std::uint64_t bytes = 0;
  Time modified = {};

  bool operator==(const FileStamp&) const = default;
};
// None of what is no regular file, or cannot be looked at.
[[nodiscard]] std::optional<FileStamp> StampOf(const std::string& path);
// The user-immutable flag; false also when it cannot be read.
[[nodiscard]] bool IsImmutable(const std::string& path);

// The whole of a regular file. What the guard refuses is ELOOP (a link), EISDIR, ENODEV (FIFO, socket, device), EFBIG
// or, for root, EMLINK: a file with several names, here in a folder of somebody else than its owner.
[[nodiscard]] Result<std::string> ReadFile(const std::string& path, std::uint64_t limitBytes);
// The same, piece by piece in memory that is used again: no more is held of it than one piece. After an error, what was
// handed over is not the whole.
[[nodiscard]] std::error_code ReadPieces(const std::string& path, std::uint64_t limitBytes,
                                         const std::function<void(std::string_view)>& take);
// Whether the guard, and not the system, kept a file from being read.
[[nodiscard]] inline bool IsRefusal(std::error_code error) {
  return error == std::errc::too_many_symbolic_link_levels || error == std::errc::is_a_directory ||
         error == std::errc::no_such_device || error == std::errc::file_too_large || error == std::errc::too_many_links;
}

// With all missing parents: 0700 below the user's home folder, 0755 elsewhere. A folder that is there already is
// success.
std::error_code MakeFolders(const std::string& path);
// Not for folders. Absent is an error (ENOENT); a link is removed, not what it points to.
std::error_code RemoveFile(const std::string& path);
// A folder with all it holds; crosses no link and no mount.
std::error_code RemoveTree(const std::string& path);
std::error_code SyncFolder(const std::string& path);

// The entries of one folder, streamed in the order the file system gives them, "." and ".." left out.
class Folder {
 public:
  [[nodiscard]] static Result<Folder> Open(const std::string& path);
  Folder(Folder&&) noexcept;
  Folder& operator=(Folder&&) noexcept;
  ~Folder();

  // None at the end, and when the listing fails midway (then Error() says why).
  [[nodiscard]] std::optional<std::string> Next();
  // The same, false for none, into a text that is used again: folders hold names by the hundred thousand.
  [[nodiscard]] bool Next(std::string& name);
  [[nodiscard]] std::error_code Error() const;

  // Of one entry by its bare name, as the free functions of these names.
  [[nodiscard]] FileKind KindOf(const std::string& name) const;
  [[nodiscard]] std::optional<Time> CreationDate(const std::string& name) const;
  [[nodiscard]] Result<std::string> Read(const std::string& name, std::uint64_t limitBytes) const;

 private:
  struct Body;
  explicit Folder(std::unique_ptr<Body> body);
  std::unique_ptr<Body> body_;
};

// A file in the making, mode 0600, in the folder of its later place: under a hidden temporary name or, when nothing
// stands at that place and the file system can do it, without any, so that not even a kill leaves something behind.
class NewFile {
 public:
  enum class Target { replaced, absent };

  [[nodiscard]] static Result<NewFile> Create(const std::string& folder, Target target = Target::replaced);
  NewFile(NewFile&&) noexcept;
  NewFile& operator=(NewFile&&) noexcept;
  // Unpublished, it leaves nothing behind.
  ~NewFile();

  // The mode and, where permitted, the owner of a regular file at `path`; without one, nothing changes.
  void TakeModeAndOwnerOf(const std::string& path);
  // All the bytes, or an error.
  std::error_code Write(std::string_view bytes);
  std::error_code Sync();
  // Puts it at `path`, which lies in the folder given to Create: in the place of what is there or, when nothing may be,
  // EEXIST. Then also an error where a file system or a policy knows no second names.
  std::error_code Publish(const std::string& path);

 private:
  struct Body;
  explicit NewFile(std::unique_ptr<Body> body);
  std::unique_ptr<Body> body_;
};

// Removes from a folder what killed processes of this user left of their NewFiles: regular files under temporary names,
// created before that time. Everything else stays.
std::error_code RemoveLeftovers(const std::string& folder, Time before);

// A private file (0600) written in place, piece by piece: the log.
class OutputFile {
 public:
  // Truncates a regular file that is there, unless `append`; refuses anything else.
  [[nodiscard]] static Result<OutputFile> Open(const std::string& path, bool append);
  OutputFile(OutputFile&&) noexcept;
  OutputFile& operator=(OutputFile&&) noexcept;
  ~OutputFile();

  [[nodiscard]] bool Write(std::string_view bytes);

 private:
  struct Body;
  explicit OutputFile(std::unique_ptr<Body> body);
  std::unique_ptr<Body> body_;
};

// An advisory lock on a file (0644) made for the purpose. It counts only while the locked file is the one at its path:
// when another process removed or replaced it in between, the file is opened anew.
class FileLock {
 public:
  enum class State { held, notCreated, notLocked };

  // Never waits for the lock.
  [[nodiscard]] static FileLock Try(const std::string& path);
  FileLock(FileLock&&) noexcept;
  FileLock& operator=(FileLock&&) noexcept;
  // Lets go of the descriptor, and with it of the lock; the file stays.
  ~FileLock();

  [[nodiscard]] State state() const;
  // Why it is not held, as errno; 0 when it is.
  [[nodiscard]] int errorNumber() const;
  // Only while held: the locked file now stands at `path` and nowhere else, without a moment in which it is not locked.
  // False, with nothing changed, when something stands there. A file made anew for each of many locks costs more with
  // every one that was removed before: a file system may look past all of them for a place.
  [[nodiscard]] bool MoveTo(const std::string& path);
  // Only while held: removes the file, unless another stands in its place by now, then lets go of it.
  void RemoveAndRelease();

 private:
  struct Body;
  explicit FileLock(std::unique_ptr<Body> body);
  std::unique_ptr<Body> body_;
};

// Keeps other rewriters of the files in a folder out for as long as it lives. Waits up to a second for its turn; after
// that, and where the folder cannot be opened, it goes on without: a rewrite that may lose a race is better than none.
class FolderLock {
 public:
  explicit FolderLock(const std::string& folder);
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;
  ~FolderLock();

 private:
  struct Body;
  std::unique_ptr<Body> body_;
};

}  // namespace platform
