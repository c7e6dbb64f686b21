#ifndef TARSIO_DIGEST_NAMES_H_
#define TARSIO_DIGEST_NAMES_H_

#include <string>

// Why the library cannot name the file that `name` names to the system, or null. It would take such
// a name for another file's, or for none.
const char* WhyUnnamable(const std::string& name);

// `name` in the form that the library expects: one that begins with a separator is meant from the
// root of the current directory's drive.
std::string WithDrive(const std::string& name);

// `name` for a message: one with control characters, or bytes that are not UTF-8, is quoted as the
// shell would need it, 'a'$'\n''b'.
std::string Quoted(const std::string& name);

#endif  // TARSIO_DIGEST_NAMES_H_
