#include "reliability/HostileEntries.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "demo/Program.h"

namespace reliability {
namespace {

namespace fs = std::filesystem;

constexpr off_t sparseBytes = off_t{6} << 30;
constexpr std::size_t longestName = 255;

void Check(bool done, const fs::path& path) {
  if (!done) throw std::system_error(errno, std::generic_category(), path);
}

// By way of the folder's descriptor: an address holds 108 bytes.
void MakeSocket(const fs::path& path) {
  const int folder = open(path.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string name = "/proc/self/fd/" + std::to_string(folder) + "/" + path.filename().string();
  std::copy_n(name.c_str(), std::min(name.size() + 1, sizeof address.sun_path), address.sun_path);
  Check(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, path);
  close(listener);
  close(folder);
}

void MakeSparse(const fs::path& path) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  Check(file >= 0 && ftruncate(file, sparseBytes) == 0, path);
  close(file);
}

void Make(std::string_view kind, const fs::path& path) {
  if (kind == "fifo") return Check(mkfifo(path.c_str(), 0666) == 0, path);
  if (kind == "socket") return MakeSocket(path);
  if (kind == "device") return Check(mknod(path.c_str(), S_IFCHR | 0666, makedev(1, 5)) == 0, path);
  if (kind == "link to a file") return fs::create_symlink("/etc/passwd", path);
  if (kind == "link to nothing") return fs::create_symlink("nothing", path);
  if (kind == "link to itself") return fs::create_symlink(path.filename(), path);
  if (kind == "link to zeros") return fs::create_symlink("/dev/zero", path);
  if (kind == "folder") return static_cast<void>(fs::create_directory(path));
  if (kind == "6 GB") return MakeSparse(path);
  throw std::invalid_argument(std::string(kind));
}

}  // namespace

std::string Fingerprint(const fs::path& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return "(absent)";
  std::string seen;
  for (const auto number :
       {static_cast<std::uint64_t>(status.st_mode), static_cast<std::uint64_t>(status.st_ino),
        static_cast<std::uint64_t>(status.st_uid), static_cast<std::uint64_t>(status.st_size),
        static_cast<std::uint64_t>(status.st_mtim.tv_sec), static_cast<std::uint64_t>(status.st_mtim.tv_nsec),
        static_cast<std::uint64_t>(status.st_ctim.tv_sec), static_cast<std::uint64_t>(status.st_ctim.tv_nsec)}) {
    seen += std::to_string(number) + " ";
  }
  return S_ISLNK(status.st_mode) ? seen + fs::read_symlink(path).string() : seen;
}

bool HostileEntry::IsUntouched() const { return Fingerprint(path) == before; }

std::vector<std::string> HostileKinds() {
  std::vector<std::string> kinds = {"fifo",           "socket",        "link to a file", "link to nothing",
                                    "link to itself", "link to zeros", "folder",         "6 GB"};
  if (getuid() == 0) kinds.emplace_back("device");
  return kinds;
}

HostileEntry Plant(std::string_view kind, const fs::path& path) {
  Make(kind, path);
  const demo::Account account = demo::OrdinaryAccount();
  Check(lchown(path.c_str(), account.user, account.group) == 0, path);
  return {.kind = std::string(kind), .path = path, .before = Fingerprint(path)};
}

std::vector<HostileEntry> PlantAll(const fs::path& folder, std::string_view begin, std::string_view end) {
  std::vector<HostileEntry> entries;
  const auto name = [&](const std::string& middle) {
    return folder / (std::string(begin) + middle + std::string(end));
  };
  for (const std::string& kind : HostileKinds()) {
    std::string middle = kind;
    std::replace(middle.begin(), middle.end(), ' ', '-');
    entries.push_back(Plant(kind, name(middle)));
  }
  const std::string filler(longestName - begin.size() - end.size(), 'x');
  for (const auto& [kind, middle] :
       {std::pair("255 bytes", filler), {"no UTF-8", "\xff\xfe"}, {"two lines", "\n[ERROR] | forged"}}) {
    HostileEntry entry = Plant("fifo", name(middle));
    entry.kind = kind;
    entries.push_back(std::move(entry));
  }
  return entries;
}

}  // namespace reliability
