#include "DriveText.h"

#include "VisibleText.h"

namespace {

char const* TypeWord(_CUDriveType type) {
  switch (type) {
    case CUDriveType_CDROM:
      return "optical medium";
    case CUDriveType_Fixed:
      return "fixed";
    case CUDriveType_NoBSDDevice:
      return "no device";
    case CUDriveType_RAM:
      return "RAM disk";
    case CUDriveType_Removable:
      return "removable";
    case CUDriveType_Unknown:
      break;
  }
  return "unknown type";
}

}  // namespace

std::string DriveText(CUSharedPtr<CUStringMac> path) {
  CUSharedPtr<CUDriveInfo> const drive = CUDriveInfo::CreateCUDriveInfo(path);
  if (drive == nullptr) return "not known";
  CUSharedPtr<CUStringMac> const label = drive->GetVolumeLabel();
  std::string const labelText =
      label == nullptr ? "no label" : "label \"" + VisibleText(Utf8Of(*label)) + "\"";
  return VisibleText(Utf8Of(*drive->GetName())) + ": " + TypeWord(drive->GetDriveType()) + ", " +
         labelText + ", " + std::to_string(drive->GetTotalFreeSize()) + " of " +
         std::to_string(drive->GetTotalSize()) + " bytes free, " +
         (drive->IsReady() ? "ready" : "not ready");
}
