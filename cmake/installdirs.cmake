# The GNU installation directories, before anything (GoogleTest) includes
# GNUInstallDirs and fixes them in the cache.  g++ -m32 reports no multiarch
# directory; on Debian the i386 libraries of the prefix /usr belong in
# lib/i386-linux-gnu all the same.
if(CMAKE_SIZEOF_VOID_P EQUAL 4 AND NOT CMAKE_LIBRARY_ARCHITECTURE AND CMAKE_INSTALL_PREFIX STREQUAL "/usr"
   AND NOT DEFINED CMAKE_INSTALL_LIBDIR AND EXISTS /etc/debian_version)
    set(CMAKE_INSTALL_LIBDIR "lib/i386-linux-gnu" CACHE PATH "Object code libraries (lib)")
endif()
include(GNUInstallDirs)
