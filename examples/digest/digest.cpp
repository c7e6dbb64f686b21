#include "digest.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include "common/file_utils.h"
#include "common/string_utils.h"
#include "names.h"
#include "system.h"

namespace {

constexpr char kOutOfMemory[] = "Out of memory";  // a std::string stores it without allocating

Outcome Failed(std::string reason) {
  Outcome outcome;
  outcome.failure = std::move(reason);
  return outcome;
}

Outcome Digested(const std::string& content) {
  const std::string digest = tarsio::StringUtils::GetHashText(content.data(), content.size());
  if (digest.empty()) return Failed("libcrypto refuses to compute SHA-256");
  Outcome outcome;
  outcome.bytes = content.size();
  outcome.digest = tarsio::StringUtils::SpaceToUnderscore(digest, " ", '0');
  return outcome;
}

// Does not resolve absolute paths: joining one to a search directory gives that directory.
tarsio::Path Find(const std::string& name, const tarsio::PathResolver& resolver) {
  const tarsio::Path path(WithDrive(name));
  return path.IsAbsolute() ? path : resolver.Resolve(path);
}

std::string ErrnoMessage() { return std::generic_category().message(errno); }

// Returns why the library did not read the file, or an empty string if the file is empty. The
// library reads only files whose size is known. Files in /proc report size 0 but have content.
std::string WhyNotRead(const tarsio::Path& path) {
  const std::filesystem::path native = NativePath(path);
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(native, error);
  if (status.type() == std::filesystem::file_type::not_found) return "No such file or directory";
  if (error) return error.default_error_condition().message();
  if (std::filesystem::is_directory(status)) return "Is a directory";
  // Do not open it: opening a FIFO without a writer blocks.
  if (!std::filesystem::is_regular_file(status)) return "Not a regular file";
  const File file = OpenForReading(native);
  if (file == nullptr) return ErrnoMessage();
  if (!IsRegularFile(file.get())) return "Not a regular file";
  if (std::getc(file.get()) != EOF) return "Its size is not known";
  return std::ferror(file.get()) != 0 ? ErrnoMessage() : "";
}

Outcome Digest(const tarsio::Path& path) {
  std::string content;
  const tarsio::FileOptRet result = tarsio::FileUtils::GetFileContent(path.Str(), content);
  if (result == tarsio::FILE_OPT_SUCCESS) return Digested(content);
  if (result == tarsio::FILE_OPT_SIZE_MISMATCH) {
    return Failed("Its size is not known, or changed while it was read");
  }
  std::string reason = WhyNotRead(path);
  return reason.empty() ? Digested("") : Failed(std::move(reason));
}

bool EndsInSeparator(const std::string& name) {
  return name.back() == '/' || (kOnWindows && name.back() == '\\');
}

std::string ReadStandardInput() {
  std::string content;
  std::array<char, 0x10000> piece{};
  while (const size_t size = std::fread(piece.data(), 1, piece.size(), stdin)) {
    content.append(piece.data(), size);
  }
  return content;
}

}  // namespace

Outcome DigestFile(const std::string& name, const tarsio::PathResolver& resolver) {
  try {
    if (name.empty()) return Failed("No such file or directory");
    if (const char* const objection = WhyUnnamable(name)) return Failed(objection);
    const tarsio::Path path = Find(name, resolver);
    // The library ignores a trailing separator.
    if (EndsInSeparator(name) && path.IsFile()) return Failed("Not a directory");
    return Digest(path);
  } catch (const std::exception&) {
    return Failed(kOutOfMemory);
  }
}

Outcome DigestStandardInput() {
  try {
    const std::string content = ReadStandardInput();
    return std::ferror(stdin) != 0 ? Failed(ErrnoMessage()) : Digested(content);
  } catch (const std::exception&) {
    return Failed(kOutOfMemory);
  }
}
