# Where things are installed: below /usr unless told otherwise, in the usual GNU folders.
if(CMAKE_INSTALL_PREFIX_INITIALIZED_TO_DEFAULT)
  set(CMAKE_INSTALL_PREFIX /usr CACHE PATH "Where to install" FORCE)
endif()
include(GNUInstallDirs)

# The service has no command line and is in nobody's path. It finds its version as ../VERSION of its
# working directory, which is "bin" in this folder.
set(JOBM_SERVICE_FOLDER lib/task-dispatcher)
# Programs and scripts of the local gateway, laid out like the repository and its build folder.
set(JOBM_LOCAL_GATEWAY_FOLDER lib/task-dispatcher-local-gateway)
set(JOBM_SYSTEMD_UNIT_DIR lib/systemd/system CACHE STRING "Where to install the unit")
