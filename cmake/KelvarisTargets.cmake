# Compiler settings shared by everything, and the functions that declare the project's targets.
include(GNUInstallDirs)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
  set(CMAKE_CUDA_COMPILER_LAUNCHER ${CCACHE})
endif()

find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(OpenMP REQUIRED COMPONENTS CXX)
find_package(fmt REQUIRED)
find_package(Eigen3 REQUIRED NO_MODULE)

# CUDA is optional: without nvcc the same kernels are compiled as C++ alone.
set(KELVARIS_HAVE_CUDA OFF)
if(NOT KELVARIS_CUDA STREQUAL "OFF")
  include(CheckLanguage)
  check_language(CUDA)
  if(CMAKE_CUDA_COMPILER)
    # Machine code for 7.5, 8.0, 8.6 and 8.9, and PTX of 8.9 for later devices.
    set(CMAKE_CUDA_ARCHITECTURES 75-real 80-real 86-real 89 CACHE STRING "CUDA architectures")
    # One runtime for host and plugin, so that both see the same errors. It loads the driver when it is first called, so
    # the libraries load where there is none. A copy lies beside them, where their run path finds it.
    set(CMAKE_CUDA_RUNTIME_LIBRARY Shared)
    enable_language(CUDA)
    set(CMAKE_CUDA_STANDARD 20)
    if(NOT CMAKE_CUDA20_STANDARD_COMPILE_OPTION) # CMake 3.25 does not know it of nvcc 13
      set(CMAKE_CUDA20_STANDARD_COMPILE_OPTION "-std=c++20")
      set(CMAKE_CUDA20_EXTENSION_COMPILE_OPTION "-std=c++20")
    endif()
    find_package(CUDAToolkit REQUIRED)
    get_target_property(cudart CUDA::cudart IMPORTED_LOCATION)
    file(COPY ${cudart} DESTINATION ${CMAKE_BINARY_DIR}/lib FOLLOW_SYMLINK_CHAIN)
    set(KELVARIS_HAVE_CUDA ON)
  elseif(KELVARIS_CUDA STREQUAL "ON")
    message(FATAL_ERROR "KELVARIS_CUDA=ON, but no CUDA compiler was found; put nvcc on PATH or set CUDACXX")
  endif()
endif()

add_library(KelvarisFlags INTERFACE)
target_compile_options(KelvarisFlags INTERFACE
  # No contraction and no fast-math: the two executors agree to the last few bits.
  $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wshadow -Wconversion -ffp-contract=off>
  # Statics of templates must not pin a library in memory after dlclose.
  $<$<AND:$<COMPILE_LANGUAGE:CXX>,$<CXX_COMPILER_ID:GNU>>:-fno-gnu-unique>
  # Without multiply-add contraction, with IEEE division and square root.
  $<$<COMPILE_LANGUAGE:CUDA>:--fmad=false --prec-div=true --prec-sqrt=true --ftz=false -Xcompiler=-ffp-contract=off>)
if(KELVARIS_WERROR)
  target_compile_options(KelvarisFlags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Werror>)
endif()
if(KELVARIS_SANITIZE)
  target_compile_options(KelvarisFlags INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-fsanitize=${KELVARIS_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=undefined>)
  target_link_options(KelvarisFlags INTERFACE -fsanitize=${KELVARIS_SANITIZE})
endif()

# kelvaris_host_library(NAME SOURCES file... [LINK target...] [LINK_PRIVATE target...])
# One folder of host/: the shared library libKelvaris<NAME>.so, included as "<NAME>/File.h".
function(kelvaris_host_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK;LINK_PRIVATE" ${ARGN})
  add_library(Kelvaris${name} SHARED ${ARG_SOURCES})
  target_include_directories(Kelvaris${name} PUBLIC ${CMAKE_SOURCE_DIR}/host)
  target_link_libraries(Kelvaris${name} PUBLIC ${ARG_LINK} PRIVATE ${ARG_LINK_PRIVATE} KelvarisFlags)
  set_target_properties(Kelvaris${name} PROPERTIES INSTALL_RPATH "$ORIGIN")
endfunction()

# kelvaris_plugin_room(NAME SOURCES file... [LINK target...] [LINK_PRIVATE target...])
# One folder of src/: the static library KelvarisPlugin<NAME>, which goes into the plugin as a whole; included as
# "<folder>/File.h".
function(kelvaris_plugin_room name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK;LINK_PRIVATE" ${ARGN})
  add_library(KelvarisPlugin${name} STATIC ${ARG_SOURCES})
  target_include_directories(KelvarisPlugin${name} PUBLIC ${CMAKE_SOURCE_DIR}/src)
  target_link_libraries(KelvarisPlugin${name} PUBLIC ${ARG_LINK} PRIVATE ${ARG_LINK_PRIVATE} KelvarisFlags)
  set_property(GLOBAL APPEND PROPERTY KELVARIS_PLUGIN_ROOMS KelvarisPlugin${name})
endfunction()

# kelvaris_cpu_variants(TARGET file...)
# Builds each file for x86-64-v2, v3 and v4 into TARGET, where what it defines stands in a namespace KELVARIS_ARCH of each
# build's own (cpu_v2, cpu_v3, cpu_v4; see CUDA/KernelCode.h). The caller picks one at run time (CUDA/CpuVariant.h).
function(kelvaris_cpu_variants target)
  foreach(level v2 v3 v4)
    set(objects ${target}_${level})
    add_library(${objects} OBJECT ${ARGN})
    target_link_libraries(${objects} PRIVATE KelvarisFlags $<TARGET_PROPERTY:${target},LINK_LIBRARIES>)
    target_include_directories(${objects} PRIVATE $<TARGET_PROPERTY:${target},INCLUDE_DIRECTORIES>)
    target_compile_definitions(${objects} PRIVATE KELVARIS_ARCH=cpu_${level})
    # The headers of g++ 12 for AVX-512 set off -W(maybe-)uninitialized. Without optimisation the files would be useless.
    target_compile_options(${objects} PRIVATE -march=x86-64-${level} -fno-math-errno -Wno-maybe-uninitialized -Wno-uninitialized $<$<CONFIG:Debug>:-O2>)
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${objects}>)
    set_property(GLOBAL APPEND PROPERTY KELVARIS_CPU_VARIANTS ${objects})
  endforeach()
endfunction()

# Everything that runs kernels: the tests declared with DEVICE, and the benchmarks of the kernels.
add_custom_target(KelvarisDeviceTests)

# kelvaris_test(NAME SOURCES file... [LINK target...] [DEVICE | GUI])
# One GoogleTest program; it sees host/, src/ and tests/ and fails on an error log that it did not expect. With DEVICE its
# tests run once per executor: as they are on the CPU, and as "cuda.<name>" on a CUDA device where the build has CUDA code
# (they are skipped where there is no device; see tests/support/DeviceTest.h). GUI is for kelvaris_gui_test.
function(kelvaris_test name)
  cmake_parse_arguments(ARG "DEVICE;GUI" "" "SOURCES;LINK" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARG_LINK} KelvarisTestMain GTest::gtest KelvarisFlags)
  set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN/../lib")
  if(ARG_GUI)
    gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST
      PROPERTIES TIMEOUT 120 ENVIRONMENT QT_QPA_PLATFORM=offscreen)
    return()
  endif()
  if(NOT ARG_DEVICE)
    gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 120)
    return()
  endif()
  add_dependencies(KelvarisDeviceTests ${name})
  gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 120 ENVIRONMENT KELVARIS_DEVICE=cpu)
  if(KELVARIS_HAVE_CUDA)
    gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_MODE PRE_TEST TEST_PREFIX cuda. TEST_LIST ${name}_cuda
      PROPERTIES TIMEOUT 120 ENVIRONMENT KELVARIS_DEVICE=cuda)
  endif()
endfunction()
