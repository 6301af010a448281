# Compiler settings shared by the whole build, and one function for each kind of target.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_package(OpenMP REQUIRED COMPONENTS CXX)
find_package(Eigen3 REQUIRED NO_MODULE)

if(DRELT_CUDA)
  if(NOT CMAKE_CUDA_ARCHITECTURES)
    set(CMAKE_CUDA_ARCHITECTURES 75)
  endif()
  enable_language(CUDA)
  set(CMAKE_CUDA_STANDARD 17)
  find_package(CUDAToolkit REQUIRED)
endif()

add_library(drelt_settings INTERFACE)
target_include_directories(drelt_settings INTERFACE ${PROJECT_SOURCE_DIR}/src)
target_link_libraries(drelt_settings INTERFACE OpenMP::OpenMP_CXX Eigen3::Eigen)
# The packaged DART and Assimp are built for the baseline instruction set. With wider vectors Eigen
# would use another alignment, and the binary interfaces would not match: so the alignment is fixed.
target_compile_definitions(drelt_settings INTERFACE
  EIGEN_MAX_ALIGN_BYTES=16 EIGEN_MAX_STATIC_ALIGN_BYTES=16
  # With the address sanitizer Eigen would allocate differently from the packaged libraries.
  EIGEN_MALLOC_ALREADY_ALIGNED=1
  $<$<BOOL:${DRELT_CUDA}>:DRELT_CUDA>)
# No contraction anywhere, so that results do not depend on whether a machine has fused operations.
# The code uses neither errno nor floating-point traps; both would keep square roots and branches from
# vectorising.
target_compile_options(drelt_settings INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-ffp-contract=off -fno-math-errno -fno-trapping-math>
  $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wshadow -Wno-unknown-pragmas>
  $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<BOOL:${DRELT_WERROR}>>:-Werror>
  $<$<COMPILE_LANGUAGE:CUDA>:--expt-relaxed-constexpr --fmad=false -Xcompiler=-ffp-contract=off>
  # Eigen's headers cause this warning even as system headers: annotations on defaulted functions.
  $<$<COMPILE_LANGUAGE:CUDA>:--diag-suppress=20012>
  $<$<AND:$<COMPILE_LANGUAGE:CUDA>,$<BOOL:${DRELT_WERROR}>>:-Werror=all-warnings>)

# Options of sources with vectorised host launches. Such sources hold only launchers, and the operators
# that are inlined into them: inline code shared with other sources must not be compiled with these.
set(DRELT_VECTOR_OPTIONS -O3)
if(DRELT_NATIVE)
  list(APPEND DRELT_VECTOR_OPTIONS -march=native)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" OR CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    list(APPEND DRELT_VECTOR_OPTIONS -mprefer-vector-width=512)
  endif()
endif()
if(DRELT_VECTOR_REPORT AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND DRELT_VECTOR_OPTIONS -fopt-info-vec-optimized)
endif()

# drelt_layer(NAME SOURCES ... [LINK ...])
# Adds one layer of the system as a static library. LINK names the layers below that it may use.
function(drelt_layer name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_link_libraries(${name} PUBLIC drelt_settings ${ARG_LINK})
endfunction()

# drelt_operator_sources(TARGET FILES ...)
# Adds sources with host launches to a layer, compiled for wide vectors. A CUDA build also adds the .cu
# file beside each of them, which instantiates its operators for the device.
function(drelt_operator_sources target)
  foreach(source IN LISTS ARGN)
    cmake_path(ABSOLUTE_PATH source NORMALIZE OUTPUT_VARIABLE path)
    target_sources(${target} PRIVATE ${path})
    set_property(SOURCE ${path} TARGET_DIRECTORY ${target}
                 APPEND PROPERTY COMPILE_OPTIONS ${DRELT_VECTOR_OPTIONS})
    cmake_path(REPLACE_EXTENSION path LAST_ONLY .cu OUTPUT_VARIABLE device)
    if(DRELT_CUDA AND EXISTS ${device})
      target_sources(${target} PRIVATE ${device})
    endif()
  endforeach()
endfunction()

# drelt_portable_executable(NAME)
# Lets an executable find its libraries in ../lib, so that both can be copied to another machine. The older
# kind of run path also applies to the libraries' own dependencies.
function(drelt_portable_executable name)
  set_property(TARGET ${name} PROPERTY BUILD_RPATH "$ORIGIN/../lib")
  target_link_options(${name} PRIVATE LINKER:--disable-new-dtags)
endfunction()

# drelt_test(NAME SOURCES ... LINK ... [LABELS ...] [GUARDED])
# Adds a GoogleTest program; CTest lists each of its cases. With GUARDED each case is listed again as
# guarded.*, label guarded, with device memory that host code cannot touch, as on a GPU.
function(drelt_test name)
  cmake_parse_arguments(ARG "GUARDED" "" "SOURCES;LINK;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/unit)
  drelt_portable_executable(${name})
  string(JOIN "-" labels ${ARG_LABELS})  # one word: discovery keeps only the first of a list
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
    WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
    # CTest runs several programs at once: their threads must not spin while they wait
    PROPERTIES LABELS "${labels}" ENVIRONMENT OMP_WAIT_POLICY=passive)
  if(ARG_GUARDED)
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST TEST_PREFIX guarded.
      WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
      PROPERTIES LABELS guarded ENVIRONMENT OMP_WAIT_POLICY=passive
                 ENVIRONMENT_MODIFICATION DRELT_GUARD_DEVICE=set:1)
  endif()
endfunction()
