#ifndef TARSIO_COMMON_SYS_INFO_H_
#define TARSIO_COMMON_SYS_INFO_H_

/// \file
/// A short description of the operating system.

#include <memory>
#include <string>

#include "common/export.h"

#if defined(_GLIBCXX_USE_CXX11_ABI) && !_GLIBCXX_USE_CXX11_ABI
#error "common/: the library has the std::string of _GLIBCXX_USE_CXX11_ABI=1; compile with it"
#endif

namespace tarsio {

/// A description of the client machine. The first and the last field do not hold what their names
/// say (by design).
struct ClientDeviceInfo {
  std::string osArch;     ///< Always "Windows".
  std::string reserved;   ///< Not read or written.
  std::string osVersion;  ///< Major and minor: "10.0" on Windows 10 and 11, "6.1" on Linux 6.1.
  std::string osManufacturingModel;  ///< Always "x64".
};

/// Describes the system that the process runs on.
///
/// Threads: may be called concurrently, each call with its own record.
/// Throws:  `std::bad_alloc`, and what the log's sink throws when a failure is logged.
class TARSIO_COMMON_API SysInfo {
 public:
  /// Fills the record that `info` points to. Returns false and logs one line at LOG_LEVEL_ERROR if
  /// the version cannot be determined; `osArch` has then been written, the other fields have not.
  ///
  /// Requires: `info` is not empty. This is not checked; an empty pointer ends the process.
  TARSIO_COMMON_NODISCARD static bool GetClientOsInfo(std::shared_ptr<ClientDeviceInfo>& info);

 private:
  static bool GetOSArch(std::string& out);
  static bool GetOSVersion(std::string& out);
  static bool GetOSManufacturingModel(std::string& out);
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_SYS_INFO_H_
