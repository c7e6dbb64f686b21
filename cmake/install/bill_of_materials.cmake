# Writes `bill`, the software bill of materials in SPDX 3.0.1. It asserts nothing about the library's own
# licence, since the owner has not chosen one.

string(TIMESTAMP now "%Y-%m-%dT%H:%M:%SZ" UTC)  # SOURCE_DATE_EPOCH, if set
# SPDX identifies documents and terms by IRIs. They are only identifiers; nothing is downloaded.
if(windows)
  set(namespace "https://spdx.org/spdxdocs/${name}-${version}-windows-x86_64")
else()
  set(namespace "https://spdx.org/spdxdocs/${name}-${version}-linux-x86_64")
endif()
if(EXISTS "${prefix}/${library}")
  # Each build has its own identifier. Identical builds have the same one.
  file(SHA256 "${prefix}/${library}" identity)
  string(SUBSTRING "${identity}" 0 16 identity)
  string(APPEND namespace "-${identity}")
else()
  set(library "")
endif()
set(elements "")
set(ids "")

# Adds an element with the fields that `fields` lists in JSON.
macro(add_element type id fields)
  string(APPEND elements ",
    {\"type\": \"${type}\", \"spdxId\": \"${namespace}#${id}\",
     \"creationInfo\": \"_:creation\", ${fields}}")
  list(APPEND ids "\"${namespace}#${id}\"")
endmacro()

macro(add_relation type from to)
  add_element(Relationship "${from}-${type}" "\"relationshipType\": \"${type}\",
     \"from\": \"${namespace}#${from}\", \"to\": [\"${to}\"]")
endmacro()

# Sets `fields` for an artifact named `label`. `file` is relative to the prefix if it is installed,
# absolute if it belongs to the system, and "" if there is no such file.
macro(set_artifact_fields label purpose file)
  set(fields "\"name\": \"${label}\", \"software_primaryPurpose\": \"${purpose}\"")
  set(path "${file}")
  if(NOT path STREQUAL "")
    if(IS_ABSOLUTE "${path}")
      get_filename_component(shown "${path}" NAME)
    else()
      set(shown "${path}")
      set(path "${prefix}/${path}")
    endif()
    file(SHA256 "${path}" checksum)
    string(APPEND fields ",\n     \"comment\": \"${shown}\", \"verifiedUsing\": [
       {\"type\": \"Hash\", \"algorithm\": \"sha256\", \"hashValue\": \"${checksum}\"}]")
  endif()
endmacro()

macro(add_package id package_version file)
  set_artifact_fields(${id} library "${file}")
  if(NOT "${package_version}" STREQUAL "")
    string(APPEND fields ",\n     \"software_packageVersion\": \"${package_version}\"")
  endif()
  add_element(software_Package ${id} "${fields}")
endmacro()

# Adds another file of the library's package.
macro(add_file purpose file)
  get_filename_component(id "${file}" NAME)
  set_artifact_fields(${id} ${purpose} "${file}")
  add_element(software_File ${id} "${fields}")
  add_element(Relationship ${name}-contains-${id} "\"relationshipType\": \"contains\",
     \"from\": \"${namespace}#${name}\", \"to\": [\"${namespace}#${id}\"]")
endmacro()

# Adds a package that the library links with. `link` is hasDynamicLink or hasStaticLink.
macro(add_part link id package_version licence file)
  add_package(${id} "${package_version}" "${file}")
  add_element(simplelicensing_LicenseExpression ${id}-licence
    "\"simplelicensing_licenseExpression\": \"${licence}\"")
  add_relation(hasDeclaredLicense ${id} "${namespace}#${id}-licence")
  add_element(Relationship ${name}-${link}-${id} "\"relationshipType\": \"${link}\",
     \"from\": \"${namespace}#${name}\", \"to\": [\"${namespace}#${id}\"]")
endmacro()

set(gcc_licence "GPL-3.0-or-later WITH GCC-exception-3.1")
if(openssl_version VERSION_LESS 3)
  set(openssl_licence OpenSSL)
else()
  set(openssl_licence Apache-2.0)
endif()

add_package(${name} ${version} "${library}")
add_relation(hasDeclaredLicense ${name} expandedlicensing_NoAssertionLicense)
if(windows)
  file(GLOB crypto RELATIVE "${prefix}" "${prefix}/bin/libcrypto-*.dll")
  add_part(hasDynamicLink libstdc++ "${gcc_version}" "${gcc_licence}" bin/libstdc++-6.dll)
  add_part(hasDynamicLink libgcc "${gcc_version}" "${gcc_licence}" bin/libgcc_s_seh-1.dll)
  add_part(hasDynamicLink winpthreads "${mingw_version}" "MIT AND BSD-3-Clause"
    bin/libwinpthread-1.dll)
  if(crypto)
    add_part(hasDynamicLink libcrypto "${openssl_version}" ${openssl_licence} "${crypto}")
  else()
    file(GLOB crypto RELATIVE "${prefix}" "${prefix}/lib/libcrypto.a")
    add_part(hasStaticLink libcrypto "${openssl_version}" ${openssl_licence} "${crypto}")
  endif()
  # The stack protector's runtime, and the start-up code of each program and DLL.
  add_part(hasStaticLink libssp "${gcc_version}" "${gcc_licence}" "")
  add_part(hasStaticLink mingw-w64-crt "${mingw_version}" ZPL-2.1 "")
else()  # the system's packages and files that the library was built with
  add_part(hasDynamicLink libstdc++ "${gcc_version}" "${gcc_licence}" "${libstdcxx}")
  add_part(hasDynamicLink libgcc "${gcc_version}" "${gcc_licence}" "${libgcc}")
  add_part(hasDynamicLink glibc "${glibc_version}" LGPL-2.1-or-later "${glibc}")
  add_part(hasDynamicLink libcrypto "${openssl_version}" ${openssl_licence} "${libcrypto}")
endif()

file(GLOB more RELATIVE "${prefix}" "${prefix}/lib/libtarsio-common.*a" "${prefix}/bin/*.exe")
list(REMOVE_ITEM more "${library}")
foreach(file IN LISTS more)
  if(file MATCHES "^bin/")
    add_file(executable "${file}")
  else()
    add_file(library "${file}")
  endif()
endforeach()

list(JOIN ids ",\n       " ids)
# The format requires this context as an identifier. It is not downloaded either.
file(WRITE "${bill}" "{
  \"@context\": \"https://spdx.org/rdf/3.0.1/spdx-context.jsonld\",
  \"@graph\": [
    {\"type\": \"CreationInfo\", \"@id\": \"_:creation\", \"specVersion\": \"3.0.1\",
     \"created\": \"${now}\", \"createdBy\": [\"${namespace}#build\"]},
    {\"type\": \"SoftwareAgent\", \"spdxId\": \"${namespace}#build\",
     \"creationInfo\": \"_:creation\", \"name\": \"the build of ${name}\"},
    {\"type\": \"SpdxDocument\", \"spdxId\": \"${namespace}#document\",
     \"creationInfo\": \"_:creation\", \"rootElement\": [\"${namespace}#bill\"],
     \"profileConformance\": [\"core\", \"software\", \"simpleLicensing\"]},
    {\"type\": \"software_Sbom\", \"spdxId\": \"${namespace}#bill\",
     \"creationInfo\": \"_:creation\", \"software_sbomType\": [\"build\"],
     \"rootElement\": [\"${namespace}#${name}\"], \"element\": [
       ${ids}]}${elements}
  ]
}
")
