# The target "manual": manual pages and bash completion in the build folder's manual/man1, man8 and completion,
# from what the programs tell of themselves. Programs of a sanitizer are not run for it: not every kernel lets
# them start as they are.
find_program(PYTHON3 python3)
if(sanitize OR NOT PYTHON3)
  return()
endif()
if(CMAKE_CROSSCOMPILING AND NOT CMAKE_CROSSCOMPILING_EMULATOR)
  return()
endif()

set(manual ${CMAKE_BINARY_DIR}/manual)
set(manual_programs gateway-config gateway-status gateway-trace
  mqtt-bridge gateway-scheduler gateway-executor gateway-page gateway-web gateway-job)
set(manual_scripts run gateway-fault)
set(manual_tables)
file(MAKE_DIRECTORY ${manual}/tables)
foreach(program ${manual_programs})
  if(TARGET ${program})
    add_custom_command(OUTPUT ${manual}/tables/${program}
      COMMAND ${program} --describe > ${manual}/tables/${program} DEPENDS ${program} VERBATIM)
    list(APPEND manual_tables ${manual}/tables/${program})
  endif()
endforeach()
if(JOBM_LOCAL_GATEWAY)
  foreach(script ${manual_scripts})
    add_custom_command(OUTPUT ${manual}/tables/${script}
      COMMAND ${PROJECT_SOURCE_DIR}/scripts/${script} --describe > ${manual}/tables/${script}
      DEPENDS ${PROJECT_SOURCE_DIR}/scripts/${script} ${PROJECT_SOURCE_DIR}/scripts/begin.sh VERBATIM)
    list(APPEND manual_tables ${manual}/tables/${script})
  endforeach()
endif()
add_custom_command(OUTPUT ${manual}/written
  COMMAND ${PYTHON3} ${PROJECT_SOURCE_DIR}/scripts/manual ${manual} ${manual_tables}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${manual}/man8
  COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/packaging/task-dispatcher.8 ${manual}/man8/
  COMMAND ${CMAKE_COMMAND} -E touch ${manual}/written
  DEPENDS ${manual_tables} ${PROJECT_SOURCE_DIR}/scripts/manual ${PROJECT_SOURCE_DIR}/VERSION
          ${PROJECT_SOURCE_DIR}/packaging/task-dispatcher.8 VERBATIM)
add_custom_target(manual ALL DEPENDS ${manual}/written)
