# The libraries as others get them: installed, and as a part of another project. The tests are steps of installed/run.
set(run ${CMAKE_CURRENT_SOURCE_DIR}/installed/run)
set(work ${PROJECT_BINARY_DIR}/installed)

# installed_test(NAME FIXTURE COMMAND...): needs what the test FIXTURE installs.
function(installed_test name fixture)
  add_test(NAME installed_${name} COMMAND ${ARGN})
  set_tests_properties(installed_${name} PROPERTIES LABELS installed TIMEOUT 1200 FIXTURES_REQUIRED "${fixture}")
endfunction()

installed_test(shared "" ${run} install ${PROJECT_BINARY_DIR} ${work}/shared)
installed_test(static "" ${run} subproject ${PROJECT_SOURCE_DIR} ${work}/subproject ${work}/static)
set_tests_properties(installed_shared PROPERTIES FIXTURES_SETUP shared)
set_tests_properties(installed_static PROPERTIES FIXTURES_SETUP static)

find_program(GXX g++)
find_program(CLANGXX clang++)
foreach(compiler ${GXX} ${CLANGXX})
  if(NOT compiler)
    continue()
  endif()
  get_filename_component(name ${compiler} NAME)
  installed_test(shared_${name} shared ${run} session ${work}/shared ${work}/shared_${name} ON ${compiler})
  installed_test(static_${name} static ${run} session ${work}/static ${work}/static_${name} OFF ${compiler})
endforeach()
installed_test(headers shared ${run} session ${work}/shared ${work}/headers OFF ${CMAKE_CXX_COMPILER}
  ${work}/shared/include/clisession)
installed_test(quickstart shared ${run} quickstart ${PROJECT_SOURCE_DIR} ${work}/shared ${work}/quickstart)
installed_test(manuals shared ${run} manuals ${work}/shared ${PROJECT_SOURCE_DIR}/examples/config_db/leaf.json)

# What the compiler puts into a library depends on the compiler and its options; the one on record is that of the default
# build.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_BUILD_TYPE STREQUAL Release AND BUILD_SHARED_LIBS AND CLANGXX)
  installed_test(abi shared ${PROJECT_SOURCE_DIR}/scripts/abi ${work}/shared)
endif()
