# No fused multiply-add contraction: the shift table and the depth tables
# must come out the same on every architecture.
file(GLOB _depthview_sources ${PROJECT_SOURCE_DIR}/src/depthview/*.cpp)
set_property(SOURCE ${_depthview_sources} APPEND PROPERTY COMPILE_OPTIONS "-ffp-contract=off")
