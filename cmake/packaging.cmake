# Packages of talvex alone, for cpack: a .deb and a .tar.gz with the program, its manual page,
# completions and guides. scripts/package builds both.
#
# They are the same byte for byte whoever builds them and wherever: times come from
# SOURCE_DATE_EPOCH, owners are root, and scripts/package sets the umask. What else goes into them,
# the compiler and the libraries that it links, is that of the system.

# The program runs on systems whose C++ library is older than that of the compiler.
if(NOT TALVEX_SANITIZE)
  target_link_options(talvex PRIVATE $<$<CONFIG:Release>:-static-libstdc++ -static-libgcc>)
endif()

# A build with the sample program would pack that too.
if(TALVEX_BUILD_SAMPLE)
  return()
endif()

set(CPACK_GENERATOR DEB External)
set(CPACK_EXTERNAL_ENABLE_STAGING ON)
set(CPACK_EXTERNAL_PACKAGE_SCRIPT ${CMAKE_CURRENT_LIST_DIR}/package/make_archive.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/package/prepare_staged.cmake)

set(CPACK_PACKAGE_NAME talvex)
set(CPACK_PACKAGE_VENDOR "The talvex developers")
set(CPACK_PACKAGE_CONTACT "The talvex developers <talvex@localhost>" CACHE STRING
    "Maintainer of the packages, as a name and an address")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "post-mortem analyser of GPU core files")
set(CPACK_PACKAGE_DESCRIPTION
"Reads the core file that the HSA runtime writes when work on a GPU ends badly
and writes plain-text reports: why the dump was taken, every saved wave with
its registers, the packets left in every queue, and how busy the GPU was. It
needs no GPU.

The code around faulting program counters and the listings of code objects
come from an llvm-objdump that knows the amdgcn target: that of a ROCm
installation, /opt/rocm/llvm/bin/llvm-objdump, or another one that is named
with --rocm_dir.")
set(CPACK_PACKAGE_FILE_NAME talvex-${PROJECT_VERSION}-linux-${CMAKE_SYSTEM_PROCESSOR})
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
# The newest symbol version that the program asks of the C library; tests/package_test compares.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.36)")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "llvm")  # an llvm-objdump for systems without ROCm

include(CPack)
