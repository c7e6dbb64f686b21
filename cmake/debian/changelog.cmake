# Writes and compresses `changelog`, dated by SOURCE_DATE_EPOCH where that is set.

set(ENV{LC_ALL} C)
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE "${changelog}" "${source} (${version}) unstable; urgency=medium

  * What has changed stands in CHANGELOG.md.

 -- ${maintainer}  ${date}
")
execute_process(COMMAND gzip -9nf "${changelog}" COMMAND_ERROR_IS_FATAL ANY)
