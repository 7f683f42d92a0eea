# Dependencies of the library itself: OpenMP, mbedTLS (crypto), Eigen (headers).
# Each found target is appended to KVDSR_PRIVATE_DEPS.
set(KVDSR_PRIVATE_DEPS "")

find_package(OpenMP REQUIRED COMPONENTS CXX)
if(KVDSR_STATIC_OPENMP)
  # NDK clang: libomp linked in, so no libomp.so is needed on the device.
  list(APPEND KVDSR_PRIVATE_DEPS OpenMP::OpenMP_CXX -static-openmp)
else()
  list(APPEND KVDSR_PRIVATE_DEPS OpenMP::OpenMP_CXX)
endif()

find_package(Threads REQUIRED)
list(APPEND KVDSR_PRIVATE_DEPS Threads::Threads)

# Area-specific dependencies (crypto, matrices) are found by the areas' own
# cmake/Find*.cmake modules, included here when present.
file(GLOB _kvdsr_dep_modules ${CMAKE_CURRENT_LIST_DIR}/deps/*.cmake)
foreach(_m ${_kvdsr_dep_modules})
  include(${_m})
endforeach()
