# The target vrm_archive: libarchive, which reads and writes payloads. It is linked statically where
# that works, unless VRM_SHARED_LIBARCHIVE is on. The shared library loads those of XML and Unicode too, for formats that a payload never
# has: that is a quarter of the time in which a program starts, and with one of them half upgraded the
# package manager could not start at all.
find_package(LibArchive 3 REQUIRED)
find_library(VRM_STATIC_LIBARCHIVE libarchive.a)
find_library(VRM_LIBACL acl)
mark_as_advanced(VRM_STATIC_LIBARCHIVE VRM_LIBACL)

if(VRM_STATIC_LIBARCHIVE AND VRM_LIBACL AND NOT VRM_SHARED_LIBARCHIVE)
  # What the static library needs depends on how it was built, so that only linking shows whether this
  # is all.
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_INCLUDES ${LibArchive_INCLUDE_DIRS})
  set(CMAKE_REQUIRED_LIBRARIES ${VRM_STATIC_LIBARCHIVE} ${VRM_LIBACL} ZLIB::ZLIB)
  check_cxx_source_compiles("
    #include <archive.h>
    int main() {
        archive *in = archive_read_new(), *out = archive_write_new();
        archive_read_support_filter_gzip(in);
        archive_read_support_format_cpio(in);
        archive_write_add_filter_gzip(out);
        archive_write_set_format_cpio_newc(out);
        return archive_write_disk_new() == nullptr;
    }" VRM_CAN_LINK_STATIC_LIBARCHIVE)
  unset(CMAKE_REQUIRED_INCLUDES)
  unset(CMAKE_REQUIRED_LIBRARIES)
endif()

# The result of the check outlives a change of the option.
if(VRM_CAN_LINK_STATIC_LIBARCHIVE AND NOT VRM_SHARED_LIBARCHIVE)
  # A target, so that the libraries that it needs come after it on every linker's command line.
  add_library(vrm_static_libarchive STATIC IMPORTED GLOBAL)
  set_target_properties(vrm_static_libarchive PROPERTIES
    IMPORTED_LOCATION ${VRM_STATIC_LIBARCHIVE}
    INTERFACE_INCLUDE_DIRECTORIES "${LibArchive_INCLUDE_DIRS}"
    INTERFACE_LINK_LIBRARIES "${VRM_LIBACL};ZLIB::ZLIB")
  add_library(vrm_archive ALIAS vrm_static_libarchive)
else()
  message(STATUS "libarchive is linked dynamically, which makes the programs start more slowly")
  add_library(vrm_archive ALIAS LibArchive::LibArchive)
endif()
