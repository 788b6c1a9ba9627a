# Compiler settings of every target of this repository: link jobm_options.
add_library(jobm_options INTERFACE)

target_compile_options(jobm_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion
  # Log records name their source by its path in the repository, wherever it was built.
  -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=
  # Back-traces of a stripped-down gateway stay readable.
  -fno-omit-frame-pointer)

# On machines of 32 bits: times beyond 2038 and files beyond 2 GiB. No library that the service is linked
# with takes or hands out a time or an offset whose size depends on it. The web server's does, see
# gateway/CMakeLists.txt.
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_definitions(jobm_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64)
endif()

# Without this switch cmake passes no -pie, and a shared-library call would not be full RELRO.
include(CheckPIESupported)
check_pie_supported()

set(sanitize "${JOBM_SANITIZE}")
if(NOT sanitize AND CMAKE_BUILD_TYPE STREQUAL "Debug")
  set(sanitize address,undefined)
endif()

if(sanitize)
  target_compile_options(jobm_options INTERFACE -fsanitize=${sanitize} -fno-sanitize-recover=all)
  target_link_options(jobm_options INTERFACE -fsanitize=${sanitize})
else()
  target_compile_options(jobm_options INTERFACE
    -fstack-protector-strong -fstack-clash-protection
    $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE> $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=3>)
  target_link_options(jobm_options INTERFACE -Wl,-z,relro -Wl,-z,now)
endif()
# Symbol names in back-traces of the executables.
set(CMAKE_ENABLE_EXPORTS OFF)
