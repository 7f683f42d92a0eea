# Installs the build into a scratch prefix, moves the prefix elsewhere, and
# then uses it only from its new place, as an integrator would:
#   - pkg-config: compiles main.c and main.cpp with `pkg-config --cflags
#     --libs kvDSR` (--static for an archive) and runs them;
#   - CMake: find_package(kvDSR <version>) in C and C++, with an older 0.x
#     accepted and the next major refused;
#   - the NDK example's CMake project, built for this host;
#   - the Python package (shared builds), the kvdsr demo (builds with tools).
# Arguments (-D): BUILD_DIR WORK_DIR CONSUMER_SRC; optional: NDK_EXAMPLE_SRC,
#   CC and CXX (default cc, c++), PKG_CONFIG, PYTHON (no Python check without).
# The version and whether the library is static come from the install tree.

cmake_minimum_required(VERSION 3.18)

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

# A consumer prints "<version> kvDSR_ERR_CAMERA_LAYOUT".
function(expect_consumer_output what exe)
  run("${what}" ${exe})
  if(NOT out STREQUAL "${VERSION} kvDSR_ERR_CAMERA_LAYOUT\n")
    message(FATAL_ERROR "${what}: unexpected output '${out}'")
  endif()
  message(STATUS "${what}: ${out}")
endfunction()

file(REMOVE_RECURSE ${WORK_DIR})
set(stage ${WORK_DIR}/stage)
set(prefix ${WORK_DIR}/moved)
run("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${stage})
file(RENAME ${stage} ${prefix})

if(NOT CC)
  set(CC cc)
endif()
if(NOT CXX)
  set(CXX c++)
endif()
if(NOT PKG_CONFIG)
  find_program(PKG_CONFIG NAMES pkg-config pkgconf REQUIRED)
endif()
file(STRINGS ${prefix}/include/kvDSR.h version_lines REGEX "^#define KVDSR_VERSION_(MAJOR|MINOR) ")
string(REGEX REPLACE ".*MAJOR +([0-9]+).*" "\\1" VERSION_MAJOR "${version_lines}")
string(REGEX REPLACE ".*MINOR +([0-9]+).*" "\\1" VERSION_MINOR "${version_lines}")
set(VERSION ${VERSION_MAJOR}.${VERSION_MINOR})
file(GLOB shared_libs ${prefix}/lib*/libkvDSR.so* ${prefix}/lib/*/libkvDSR.so*)
if(shared_libs)
  set(STATIC OFF)
else()
  set(STATIC ON)
endif()
message(STATUS "installed kvDSR ${VERSION}, static: ${STATIC}")

# ---- pkg-config ------------------------------------------------------------
file(GLOB pcdir LIST_DIRECTORIES true ${prefix}/lib*/pkgconfig ${prefix}/lib/*/pkgconfig)
if(NOT pcdir)
  message(FATAL_ERROR "no pkgconfig folder in ${prefix}")
endif()
set(pc_args --cflags --libs)
if(STATIC)
  list(APPEND pc_args --static)
endif()
run("pkg-config" ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pcdir} ${PKG_CONFIG} ${pc_args} kvDSR)
string(STRIP "${out}" pc_flags)
string(FIND "${pc_flags}" "${prefix}/" at)
if(at EQUAL -1)
  message(FATAL_ERROR "pkg-config points outside the moved prefix: ${pc_flags}")
endif()
run("pkg-config libdir" ${CMAKE_COMMAND} -E env PKG_CONFIG_PATH=${pcdir} ${PKG_CONFIG} --variable=libdir kvDSR)
string(STRIP "${out}" libdir)
separate_arguments(pc_flags UNIX_COMMAND "${pc_flags}")
file(MAKE_DIRECTORY ${WORK_DIR}/pc)
run("pkg-config C build" ${CC} -std=c99 ${CONSUMER_SRC}/main.c ${pc_flags} -Wl,-rpath,${libdir}
    -o ${WORK_DIR}/pc/consumer_c)
run("pkg-config C++ build" ${CXX} ${CONSUMER_SRC}/main.cpp ${pc_flags} -Wl,-rpath,${libdir}
    -o ${WORK_DIR}/pc/consumer_cxx)
expect_consumer_output("pkg-config C consumer" ${WORK_DIR}/pc/consumer_c)
expect_consumer_output("pkg-config C++ consumer" ${WORK_DIR}/pc/consumer_cxx)

# ---- CMake package ---------------------------------------------------------
set(cmake_args -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_C_COMPILER=${CC} -DCMAKE_CXX_COMPILER=${CXX})
run("find_package configure" ${CMAKE_COMMAND} -S ${CONSUMER_SRC} -B ${WORK_DIR}/cmake
    ${cmake_args} -DKVDSR_REQUIRED_VERSION=${VERSION})
run("find_package build" ${CMAKE_COMMAND} --build ${WORK_DIR}/cmake)
expect_consumer_output("find_package C consumer" ${WORK_DIR}/cmake/consumer_c)
expect_consumer_output("find_package C++ consumer" ${WORK_DIR}/cmake/consumer_cxx)

# Same major version: an older minor is satisfied, the next major is not.
run("find_package ${VERSION_MAJOR}.0" ${CMAKE_COMMAND} -S ${CONSUMER_SRC} -B ${WORK_DIR}/cmake-old
    ${cmake_args} -DKVDSR_REQUIRED_VERSION=${VERSION_MAJOR}.0)
math(EXPR next_major "${VERSION_MAJOR} + 1")
execute_process(COMMAND ${CMAKE_COMMAND} -S ${CONSUMER_SRC} -B ${WORK_DIR}/cmake-next
    ${cmake_args} -DKVDSR_REQUIRED_VERSION=${next_major}.0 RESULT_VARIABLE rc OUTPUT_QUIET ERROR_QUIET)
if(rc EQUAL 0)
  message(FATAL_ERROR "find_package(kvDSR ${next_major}.0) accepted version ${VERSION}")
endif()

# The NDK consumer example's CMake project, here for the host.
if(NDK_EXAMPLE_SRC)
  run("NDK example configure" ${CMAKE_COMMAND} -S ${NDK_EXAMPLE_SRC} -B ${WORK_DIR}/ndk-example
      ${cmake_args} -DkvDSR_DIR=${prefix}/lib/cmake/kvDSR)
  run("NDK example build" ${CMAKE_COMMAND} --build ${WORK_DIR}/ndk-example)
  run("NDK example run" ${WORK_DIR}/ndk-example/kvdsr_ndk_example)
  message(STATUS "NDK example: ${out}")
endif()

# ---- Python package --------------------------------------------------------
if(NOT STATIC AND PYTHON)
  file(GLOB pydir LIST_DIRECTORIES true ${prefix}/lib*/python3/dist-packages ${prefix}/lib/*/python3/dist-packages)
  run("python import" ${CMAKE_COMMAND} -E env PYTHONPATH=${pydir} KVDSR_LIBRARY=
      ${PYTHON} -c "print(__import__('kvdsr').version(), __import__('kvdsr').library_path())")
  string(STRIP "${out}" out)
  if(NOT out MATCHES "^${VERSION} ${prefix}/")
    message(FATAL_ERROR "python package: '${out}' is not version ${VERSION} from ${prefix}")
  endif()
  message(STATUS "python: ${out}")
endif()

# ---- Tools and sample data -------------------------------------------------
if(EXISTS ${prefix}/bin/kvdsr)
  run("kvdsr demo" ${prefix}/bin/kvdsr demo --out ${WORK_DIR}/demo)
  if(NOT EXISTS ${WORK_DIR}/demo/index.html)
    message(FATAL_ERROR "the installed demo wrote no index.html")
  endif()
  # Without the installed data it must fail, not fall back on the source tree.
  file(RENAME ${prefix}/share/kvDSR ${prefix}/share/kvDSR.moved-away)
  execute_process(COMMAND ${prefix}/bin/kvdsr demo --out ${WORK_DIR}/demo-nodata
    RESULT_VARIABLE rc OUTPUT_QUIET ERROR_QUIET)
  file(RENAME ${prefix}/share/kvDSR.moved-away ${prefix}/share/kvDSR)
  if(rc EQUAL 0)
    message(FATAL_ERROR "the installed demo ran without its installed data")
  endif()
  run("kvdsr-calib" ${prefix}/bin/kvdsr-calib inspect ${prefix}/share/kvDSR/samples/chess-rig.calib)
  message(STATUS "installed demo and kvdsr-calib run from the moved prefix")
endif()
