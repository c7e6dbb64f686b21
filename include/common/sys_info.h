#ifndef TARSIO_COMMON_SYS_INFO_H_
#define TARSIO_COMMON_SYS_INFO_H_

/// \file
/// A short description of the operating system.

#include <memory>
#include <string>

#include "common/export.h"

namespace tarsio {

/// A description of the client machine. The names of the first and the last field and what they
/// hold do not match, deliberately.
struct ClientDeviceInfo {
  std::string osArch;                ///< Always "Windows".
  std::string reserved;              ///< Neither read nor written.
  std::string osVersion;             ///< Such as "10.0"; on Linux, the kernel's "6.1".
  std::string osManufacturingModel;  ///< Always "x64".
};

/// Describes the system that the process runs on.
///
/// Threads: may be called from any thread at once, each with a record of its own.
/// Throws:  nothing but memory exhaustion.
class TARSIO_COMMON_API SysInfo {
 public:
  /// Fills `info`, which must not be empty, and returns whether all could be told. At the first
  /// failure, one line is logged at LOG_LEVEL_ERROR; the fields written before keep their new
  /// values, the others their old ones.
  TARSIO_COMMON_NODISCARD static bool GetClientOsInfo(std::shared_ptr<ClientDeviceInfo>& info);

 private:
  static bool GetOSArch(std::string& out);
  static bool GetOSVersion(std::string& out);
  static bool GetOSManufacturingModel(std::string& out);
};

}  // namespace tarsio

#endif  // TARSIO_COMMON_SYS_INFO_H_
