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

/// A description of the client machine. The names of the first and the last field do not match what
/// they hold; callers rely on that.
struct ClientDeviceInfo {
  std::string osArch;                ///< Always "Windows".
  std::string reserved;              ///< Neither read nor written.
  std::string osVersion;             ///< "10.0" on Windows 10 and 11; on Linux the kernel's "6.1".
  std::string osManufacturingModel;  ///< Always "x64".
};

/// Describes the system that the process runs on.
///
/// Threads: may be called from any thread at once, each with a record of its own.
/// Throws:  nothing but memory exhaustion.
class TARSIO_COMMON_API SysInfo {
 public:
  /// Fills `info`, which must hold a record (an empty pointer is not checked for and ends the
  /// process), and returns whether everything could be found out. At the first failure, one line is
  /// logged at LOG_LEVEL_ERROR; the fields written before keep their new values, the others their
  /// old ones.
  TARSIO_COMMON_NODISCARD static bool GetClientOsInfo(std::shared_ptr<ClientDeviceInfo>& info);

 private:
  static bool GetOSArch(std::string& out);
  static bool GetOSVersion(std::string& out);
  static bool GetOSManufacturingModel(std::string& out);
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_SYS_INFO_H_
