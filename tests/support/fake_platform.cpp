#include "support/fake_platform.h"

#include <algorithm>

namespace tarsio_test {

namespace {

FakePlatform* current = nullptr;

}  // namespace

FakePlatform::FakePlatform() { current = this; }
FakePlatform::~FakePlatform() { current = nullptr; }
FakePlatform& FakePlatform::Get() { return *current; }

void FakePlatform::Record(const std::string& call) {
  if (recorded++ == eventAt) event();
  calls.push_back(call);
}

}  // namespace tarsio_test

namespace tarsio::platform {

namespace {

tarsio_test::FakePlatform& Fake() { return tarsio_test::FakePlatform::Get(); }

std::wstring Wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }
std::string Ascii(const std::wstring& wide) {
  std::string ascii;
  for (const wchar_t unit : wide) ascii += static_cast<char>(unit);
  return ascii;
}

FileType Find(const std::string& path) {
  const auto found = Fake().objects.find(path);
  return found != Fake().objects.end() ? found->second : Fake().otherObjects;
}

bool Change(const std::string& call, const std::string& path) {
  Fake().Record(call + ' ' + path);
  return Fake().changes;
}

// Returns the descriptor, -1 on failure.
int Open(const std::string& call, const std::wstring& path) {
  Fake().Record(call + ' ' + Ascii(path));
  if (!Fake().opens || Find(Ascii(path)) == FileType::kNone) return -1;
  ++Fake().openFiles;
  Fake().position = 0;
  return 0;
}

}  // namespace

std::wstring Widen(const std::string& utf8) {
  Fake().conversions.push_back(utf8);
  return Wide(utf8);
}
std::string Narrow(const std::wstring& utf16) {
  Fake().conversions.push_back(Ascii(utf16));
  return Ascii(utf16);
}

bool RuntimeLocaleIsClassic() { return false; }
bool LibcryptoIsUsable() { return Fake().libcryptoIsUsable; }

std::optional<Version> RunningVersion() {
  Fake().Record("RunningVersion");
  return Fake().version;
}

std::wstring FullPath(const std::wstring& path, size_t capacity) {
  Fake().Record("FullPath " + Ascii(path) + ' ' + std::to_string(capacity));
  return Wide(Fake().fullPath);
}
std::wstring CurrentDirectory(size_t capacity) {
  Fake().Record("CurrentDirectory " + std::to_string(capacity));
  return Wide(Fake().currentDirectory);
}

FileType TypeOf(const std::wstring& path) {
  Fake().Record("TypeOf " + Ascii(path));
  return Find(Ascii(path));
}
uint64_t SizeOf(const std::wstring& path) {
  Fake().Record("SizeOf " + Ascii(path));
  if (Fake().sizeOf) return *Fake().sizeOf;
  return Find(Ascii(path)) == FileType::kOther ? Fake().content.size() : 0;
}
FileStatus Status(const std::wstring& path) {
  const FileType type = TypeOf(path);
  return {type, type == FileType::kOther ? SizeOf(path) : 0};
}

bool CreateOneDirectory(const std::wstring& path) {
  return Change("CreateOneDirectory", Ascii(path));
}
bool CreateDirectories(const std::wstring& path) {
  return Change("CreateDirectories", Ascii(path));
}
bool CreateDirectoryNarrow(const std::string& path) {
  return Change("CreateDirectoryNarrow", path);
}
bool RemoveDirectoryNarrow(const std::string& path) {
  return Change("RemoveDirectoryNarrow", path);
}
bool RemoveFileNarrow(const std::string& path) { return Change("RemoveFileNarrow", path); }

File File::OpenForReading(const std::wstring& path) { return File(Open("OpenForReading", path)); }
File File::OpenForWriting(const std::wstring& path, const WriteMode& mode) {
  const int descriptor = Open("OpenForWriting", path);
  Fake().mode = mode;
  if (descriptor >= 0 && mode.truncate) Fake().content.clear();
  return File(descriptor);
}
File::~File() {
  if (IsOpen()) --Fake().openFiles;
}

// An open file stays readable after its removal.
size_t File::Read(char* buffer, size_t size, size_t /*expected*/) {
  size_t done = 0;
  while (done < size) {
    Fake().Record("Read");
    const std::string& content = Fake().content;
    const size_t left = content.size() - std::min(Fake().position, content.size());
    const size_t count = std::min({left, size - done, size_t{2}});
    if (count == 0) break;
    content.copy(buffer + done, count, Fake().position);
    Fake().position += count;
    done += count;
  }
  return done;
}

void File::Write(const char* data, size_t size) {
  const size_t taken = std::min(size, Fake().room);
  Fake().content.append(data, taken);
  Fake().room -= taken;
}

int64_t WallClockTicks() {
  Fake().Record("WallClockTicks");
  return Fake().ticks;
}

bool LocalTime(int64_t seconds, std::tm* local) {
  Fake().Record("LocalTime " + std::to_string(seconds));
  local->tm_year = 77;  // a failed call may modify it, too
  if (Fake().localTime) *local = *Fake().localTime;
  return Fake().localTime.has_value();
}

int StandardOutputSignal() { return 0; }
ScopedSignalBlock::ScopedSignalBlock(int signal) : blocked(signal) {}
void ScopedSignalBlock::DiscardAndUnblock() const {}

bool ProcessIsEnding() {
  Fake().Record("ProcessIsEnding");
  return Fake().processIsEnding;
}

int ForkCount() { return 0; }

}  // namespace tarsio::platform
