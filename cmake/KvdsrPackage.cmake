# Install rules and package files of the library. Everything installed finds
# everything else relative to itself, so that an install tree can be moved:
# kvDSR.pc through ${pcfiledir}, kvDSRConfig.cmake through its own location,
# the Python package through the path to the library it carries.
include(CMakePackageConfigHelpers)

set(KVDSR_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/kvDSR)
set(KVDSR_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(KVDSR_INSTALL_DATA_DIR ${CMAKE_INSTALL_DATADIR}/kvDSR)
set(KVDSR_PYTHON_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/python3/dist-packages
  CACHE STRING "Where the kvdsr Python package is installed, relative to the prefix")

# Install path `to` relative to install path `from`, both relative to the
# prefix. An absolute one of them makes the result the absolute path of `to`
# (not relocatable, as asked).
function(kvdsr_install_relpath out from to)
  if(IS_ABSOLUTE "${to}")
    set(${out} "${to}" PARENT_SCOPE)
  elseif(IS_ABSOLUTE "${from}")
    set(${out} "${CMAKE_INSTALL_PREFIX}/${to}" PARENT_SCOPE)
  else()
    set(root /kvdsr-install-prefix)
    file(RELATIVE_PATH rel "${root}/${from}" "${root}/${to}")
    string(REGEX REPLACE "/$" "" rel "${rel}")
    if(rel STREQUAL "")
      set(rel .)
    endif()
    set(${out} "${rel}" PARENT_SCOPE)
  endif()
endfunction()

install(TARGETS kvDSR EXPORT kvDSRTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES include/kvDSR.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES LICENSE CHANGELOG.md README.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR})
# Sample data for `kvdsr demo` and the Python example.
install(DIRECTORY data/samples DESTINATION ${KVDSR_INSTALL_DATA_DIR})
install(FILES data/sample-module.json DESTINATION ${KVDSR_INSTALL_DATA_DIR})

# ---- CMake package --------------------------------------------------------
# What a consumer of the static archive links besides it (the shared library
# links these itself). KVDSR_STATIC_OPENMP adds the NDK's -static-openmp.
if(BUILD_SHARED_LIBS)
  set(KVDSR_CONFIG_STATIC OFF)
else()
  set(KVDSR_CONFIG_STATIC ON)
endif()
set(KVDSR_CONFIG_STATIC_OPENMP ${KVDSR_STATIC_OPENMP})
install(EXPORT kvDSRTargets NAMESPACE kvDSR:: DESTINATION ${KVDSR_CMAKE_DIR})
configure_package_config_file(cmake/kvDSRConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/kvDSRConfig.cmake
  INSTALL_DESTINATION ${KVDSR_CMAKE_DIR})
# The soname changes only with the major version; so does compatibility.
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/kvDSRConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kvDSRConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/kvDSRConfigVersion.cmake
  DESTINATION ${KVDSR_CMAKE_DIR})

# ---- pkg-config -----------------------------------------------------------
kvdsr_install_relpath(KVDSR_PC_PREFIX ${KVDSR_PKGCONFIG_DIR} "")
if(NOT IS_ABSOLUTE "${KVDSR_PC_PREFIX}")
  set(KVDSR_PC_PREFIX "\${pcfiledir}/${KVDSR_PC_PREFIX}")
endif()
foreach(kind LIBDIR INCLUDEDIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${kind}}")
    set(KVDSR_PC_${kind} "${CMAKE_INSTALL_${kind}}")
  else()
    set(KVDSR_PC_${kind} "\${prefix}/${CMAKE_INSTALL_${kind}}")
  endif()
endforeach()
# Libs.private (pkg-config --static): OpenMP's libraries and the C++ runtime
# libraries a C link would miss.
set(_private -lmbedcrypto)
foreach(lib ${OpenMP_CXX_LIB_NAMES})
  list(APPEND _private -l${lib})
endforeach()
foreach(lib ${CMAKE_CXX_IMPLICIT_LINK_LIBRARIES})
  if(NOT lib IN_LIST CMAKE_C_IMPLICIT_LINK_LIBRARIES AND NOT "-l${lib}" IN_LIST _private)
    list(APPEND _private -l${lib})
  endif()
endforeach()
list(JOIN _private " " KVDSR_PC_LIBS_PRIVATE)
configure_file(cmake/kvDSR.pc.in ${CMAKE_CURRENT_BINARY_DIR}/kvDSR.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/kvDSR.pc DESTINATION ${KVDSR_PKGCONFIG_DIR})

# ---- Python package (ctypes over the shared library) ----------------------
if(BUILD_SHARED_LIBS)
  install(DIRECTORY python/kvdsr DESTINATION ${KVDSR_PYTHON_INSTALL_DIR}
    PATTERN __pycache__ EXCLUDE)
  kvdsr_install_relpath(_pylib ${KVDSR_PYTHON_INSTALL_DIR}/kvdsr ${CMAKE_INSTALL_LIBDIR})
  file(GENERATE OUTPUT ${CMAKE_CURRENT_BINARY_DIR}/python/_installed.py CONTENT
"# Written at install: where the library lies, relative to this package.
LIBRARY = \"${_pylib}/$<TARGET_SONAME_FILE_NAME:kvDSR>\"
")
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/python/_installed.py
    DESTINATION ${KVDSR_PYTHON_INSTALL_DIR}/kvdsr)
endif()
