# Each area of the code base lives in its own directory with its own
# CMakeLists.txt; these helpers keep those files short and uniform.

# Adds every direct subdirectory of DIR that has a CMakeLists.txt, in name order.
function(vzk_add_optional_subdirectories DIR)
  file(GLOB children LIST_DIRECTORIES true RELATIVE ${DIR} ${DIR}/*)
  list(SORT children)
  foreach(child IN LISTS children)
    if(IS_DIRECTORY ${DIR}/${child} AND EXISTS ${DIR}/${child}/CMakeLists.txt)
      add_subdirectory(${DIR}/${child})
    endif()
  endforeach()
endfunction()

# vzk_add_component(NAME SOURCES ... [DEPS ...])
# A static, position-independent library vzk_<NAME>. Every component is also
# recorded so that the plug-in links all of them.
function(vzk_add_component NAME)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS" ${ARGN})
  add_library(vzk_${NAME} STATIC ${ARG_SOURCES})
  target_include_directories(vzk_${NAME} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(vzk_${NAME} PUBLIC vzk_sdk ${ARG_DEPS})
  set_property(GLOBAL APPEND PROPERTY VZK_COMPONENTS vzk_${NAME})
endfunction()

# vzk_add_test(NAME SOURCES ... [LIBS ...])
# A GoogleTest executable registered with CTest.
function(vzk_add_test NAME)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${NAME} ${ARG_SOURCES})
  target_include_directories(${NAME} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${NAME} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gtest_main Threads::Threads)
  gtest_discover_tests(${NAME} DISCOVERY_TIMEOUT 60 PROPERTIES ENVIRONMENT "VZK_BUILD_DIR=${CMAKE_BINARY_DIR}")
endfunction()

# The H.264 decoder spends its time in small functions called across files
# and in loops that gain from unrolling: its components build with -O3 and
# keep their intermediate code for inlining at link time (GCC, optimised,
# unsanitised builds; measured 10 % on 1080p Baseline). The objects stay fat,
# so a target linked without vzk_link_optimized uses their machine code.
# GCC 12's -O3 reports writes past arrays on indexed stores whose index
# ranges it cannot bound (known false positives); the sanitizer builds, at
# their own optimisation level, keep checking those stores for real.
set(VZK_OPTIMIZED "$<AND:$<CXX_COMPILER_ID:GNU>,$<NOT:$<CONFIG:Debug>>>")

function(vzk_optimize_hot TARGET)
  if(NOT VZK_SANITIZE AND NOT VZK_TSAN)
    target_compile_options(${TARGET} PRIVATE "$<${VZK_OPTIMIZED}:-O3;-flto=auto;-ffat-lto-objects;-Wno-stringop-overflow>")
  endif()
endfunction()

# Links TARGET with the link-time inlining of the components above.
function(vzk_link_optimized TARGET)
  set_property(TARGET ${TARGET} PROPERTY VZK_LINK_OPTIMIZED ON)
  if(NOT VZK_SANITIZE AND NOT VZK_TSAN)
    target_link_options(${TARGET} PRIVATE "$<${VZK_OPTIMIZED}:-O3;-flto=auto;-Wno-stringop-overflow>")
  endif()
endfunction()

# GCC's linker plug-in would optimise every link that meets those objects;
# every other target (the many test programs above all) takes their machine
# code as it is, which keeps the build as fast as before.
add_link_options(
  "$<$<AND:${VZK_OPTIMIZED},$<NOT:$<BOOL:$<TARGET_PROPERTY:VZK_LINK_OPTIMIZED>>>>:-fno-lto>")
