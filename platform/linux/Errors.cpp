#include "platform/linux/Errors.h"

namespace {

struct Translation {
  int error;
  OSErr status;
};

constexpr Translation kTranslations[] = {
    {ENOENT, fnfErr},         {ELOOP, fnfErr},     {ENOTDIR, dirNFErr}, {EEXIST, dupFNErr},
    {ENAMETOOLONG, bdNamErr}, {EILSEQ, bdNamErr},  {EACCES, permErr},   {EPERM, permErr},
    {EROFS, wPrErr},          {EISDIR, opWrErr},   {EBUSY, fBsyErr},    {ETXTBSY, fBsyErr},
    {ENOTEMPTY, fBsyErr},     {EAGAIN, fBsyErr},   {EMFILE, tmfoErr},   {ENFILE, tmfoErr},
    {ENOSPC, dskFulErr},      {EDQUOT, dskFulErr}, {EFBIG, dskFulErr},  {EOVERFLOW, dskFulErr},
    {ENOMEM, memFullErr},     {EBADF, fnOpnErr},   {EINVAL, paramErr},  {EFAULT, paramErr},
};

}  // namespace

OSErr StatusFromErrno(int error) noexcept {
  for (Translation const& translation : kTranslations) {
    if (translation.error == error) return translation.status;
  }
  return ioErr;
}
