// Describes the operating system.

//! [includes]
#include "common/sys_info.h"

#include <iostream>
#include <memory>
//! [includes]

int main() {
  //! [system]
  auto info = std::make_shared<tarsio::ClientDeviceInfo>();
  if (!tarsio::SysInfo::GetClientOsInfo(info)) return 1;
  std::cout << info->osArch << ' ' << info->osManufacturingModel << ", version "
            << (info->osVersion.find('.') != std::string::npos ? "major.minor" : "unknown") << '\n';
  //! [system]
  return 0;
}
