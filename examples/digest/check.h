#ifndef TARSIO_DIGEST_CHECK_H_
#define TARSIO_DIGEST_CHECK_H_

#include <string>

#include "console.h"
#include "digester.h"
#include "options.h"

// Verifies the files of `list`, a file that FormatLine() or sha256sum has written, and prints what
// sha256sum --check does. Returns whether every file in it is OK.
bool CheckList(const std::string& list, const Options& options, Digester& digester,
               Console& console);

#endif  // TARSIO_DIGEST_CHECK_H_
