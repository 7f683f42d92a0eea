# mbedTLS crypto (AES-CBC, HKDF-SHA256) for the calibration cipher.
# An outer build (e.g. an NDK build compiling mbedTLS itself) may already
# provide the target; otherwise the system's libmbedcrypto is used. Cross
# builds find Debian's multiarch copy through CMAKE_FIND_ROOT_PATH (/) and
# CMAKE_LIBRARY_ARCHITECTURE.
if(TARGET MbedTLS::mbedcrypto)
  set(KVDSR_MBEDCRYPTO_TARGET MbedTLS::mbedcrypto)
elseif(TARGET mbedcrypto)
  set(KVDSR_MBEDCRYPTO_TARGET mbedcrypto)
else()
  find_package(MbedTLS CONFIG QUIET)
  if(TARGET MbedTLS::mbedcrypto)
    set(KVDSR_MBEDCRYPTO_TARGET MbedTLS::mbedcrypto)
  else()
    find_path(KVDSR_MBEDTLS_INCLUDE_DIR mbedtls/aes.h)
    find_library(KVDSR_MBEDCRYPTO_LIBRARY NAMES mbedcrypto)
    if(NOT KVDSR_MBEDTLS_INCLUDE_DIR OR NOT KVDSR_MBEDCRYPTO_LIBRARY)
      message(FATAL_ERROR "mbedTLS not found (install libmbedtls-dev for the target "
                          "architecture, or define the MbedTLS::mbedcrypto target)")
    endif()
    add_library(kvdsr_mbedcrypto INTERFACE IMPORTED)
    set_target_properties(kvdsr_mbedcrypto PROPERTIES
      INTERFACE_INCLUDE_DIRECTORIES "${KVDSR_MBEDTLS_INCLUDE_DIR}"
      INTERFACE_LINK_LIBRARIES "${KVDSR_MBEDCRYPTO_LIBRARY}")
    set(KVDSR_MBEDCRYPTO_TARGET kvdsr_mbedcrypto)
  endif()
endif()
message(STATUS "kvDSR: mbedTLS crypto from ${KVDSR_MBEDCRYPTO_TARGET} ${KVDSR_MBEDCRYPTO_LIBRARY}")
list(APPEND KVDSR_PRIVATE_DEPS ${KVDSR_MBEDCRYPTO_TARGET})
