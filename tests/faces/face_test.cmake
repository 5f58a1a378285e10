include_guard()

# Runs a program on a virtual display of its own, with a private home, and ends it for good when it hangs.
#   zunto_face_test(TARGET [ARGUMENTS ...])
function(zunto_face_test target)
  add_test(NAME ${target}
           COMMAND "${PROJECT_SOURCE_DIR}/tests/faces/run_on_display.sh" $<TARGET_FILE:${target}> ${ARGN})
  set_tests_properties(${target} PROPERTIES TIMEOUT 240)
endfunction()
