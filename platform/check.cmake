# Sees while configuring that the named libraries hold what the service calls, and not an hour later
# when it is linked.
foreach(library IN LISTS GATEWAY_PLATFORM_LIBRARIES)
  if(IS_ABSOLUTE "${library}" AND NOT EXISTS "${library}")
    message(FATAL_ERROR "GATEWAY_PLATFORM_LIBRARIES names ${library}, which is not there")
  endif()
endforeach()
foreach(folder IN LISTS GATEWAY_PLATFORM_INCLUDE_DIRS)
  if(NOT IS_DIRECTORY "${folder}")
    message(FATAL_ERROR "GATEWAY_PLATFORM_INCLUDE_DIRS names ${folder}, which is no folder")
  endif()
endforeach()

string(JOIN "$<SEMICOLON>" include_dirs ${GATEWAY_PLATFORM_INCLUDE_DIRS} ${CMAKE_CURRENT_SOURCE_DIR}/include)
try_compile(platform_is_complete
  SOURCE_FROM_CONTENT platform_check.cpp [[
#include <gateway/config.h>
#include <gateway/discovery.h>
#include <gateway/log.h>
int main() {
  log_init("check", 0, 0, 0);
  log_print(0, "", "", "", "", 0, "%d", set_config(nullptr, "", "", 0));
  createThread_discovery();
  char* value = nullptr;
  const int result = get_config(nullptr, "", &value, 0);
  log_destroy();
  return result;
}
]]
  CMAKE_FLAGS "-DINCLUDE_DIRECTORIES=${include_dirs}"
  LINK_LIBRARIES ${GATEWAY_PLATFORM_LIBRARIES} Threads::Threads
  OUTPUT_VARIABLE output)
if(NOT platform_is_complete)
  message(FATAL_ERROR "GATEWAY_PLATFORM_LIBRARIES (${GATEWAY_PLATFORM_LIBRARIES}) is not what "
    "the headers in platform/include/gateway describe:\n${output}")
endif()
