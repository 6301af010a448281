# The operators between samples and links, without any dependence on the bodies themselves. They form
# no long loops over rows, so they are built like other sources and may use Eigen.
drelt_layer(drelt_link_operators
  SOURCES LabelReduction.cpp SampleMasses.cpp skSystem_GPU.cpp
  LINK drelt_records)
# Thrust runs on the host in C++ sources; the .cu file names its own policy.
target_compile_definitions(drelt_link_operators PRIVATE
  $<$<COMPILE_LANGUAGE:CXX>:THRUST_DEVICE_SYSTEM=THRUST_DEVICE_SYSTEM_CPP>)
if(DRELT_CUDA)
  target_sources(drelt_link_operators PRIVATE LabelReduction.cu SampleMasses.cu skSystem_GPU.cu)
  if(NOT TARGET drelt_operators_cuda)
    add_custom_target(drelt_operators_cuda)
  endif()
  add_dependencies(drelt_operators_cuda drelt_link_operators)
endif()
