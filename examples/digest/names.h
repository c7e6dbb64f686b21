#ifndef TARSIO_DIGEST_NAMES_H_
#define TARSIO_DIGEST_NAMES_H_

#include <string>

// Returns why the library cannot represent the system's file name `name`, or null if it can. It
// would open another file, or none.
const char* WhyUnnamable(const std::string& name);

// Converts `name` to the form that the library expects: if it begins with a separator, prepends the
// current directory's drive.
std::string WithDrive(const std::string& name);

// Returns `name` for use in a message. Quotes it for the shell, such as 'a'$'\n''b', if it contains
// control characters or is not UTF-8.
std::string Quoted(const std::string& name);

#endif  // TARSIO_DIGEST_NAMES_H_
