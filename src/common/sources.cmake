# No fused multiply-add contraction in the virtual camera: the engines'
# tables must come out the same on every architecture.
set_property(SOURCE ${PROJECT_SOURCE_DIR}/src/common/virtual_camera.cpp APPEND PROPERTY COMPILE_OPTIONS
  "-ffp-contract=off")
