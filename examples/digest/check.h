#ifndef TARSIO_DIGEST_CHECK_H_
#define TARSIO_DIGEST_CHECK_H_

#include <string>

#include "console.h"
#include "digester.h"
#include "options.h"

// Verifies the files listed in the file `list`, in the format of FormatLine() or sha256sum. Prints
// the same output as sha256sum --check. Returns true if every file is OK.
bool CheckList(const std::string& list, const Options& options, Digester& digester,
               Console& console);

#endif  // TARSIO_DIGEST_CHECK_H_
