# Python is optional. What is found here is the distribution's Python, with headers, library and pybind11; the module is
# then good for every CPython of that version.
set(KELVARIS_HAVE_PYTHON OFF)
if(NOT KELVARIS_PYTHON STREQUAL "OFF")
  if(NOT Python3_EXECUTABLE AND EXISTS /usr/bin/python3)
    set(Python3_EXECUTABLE /usr/bin/python3) # not one that happens to come first on PATH
  endif()
  find_package(Python3 QUIET COMPONENTS Interpreter Development.Module Development.Embed)
  find_package(pybind11 QUIET)
  if(Python3_FOUND AND pybind11_FOUND)
    set(KELVARIS_HAVE_PYTHON ON)
  elseif(KELVARIS_PYTHON STREQUAL "ON")
    message(FATAL_ERROR "KELVARIS_PYTHON=ON, but Python's headers and library (found: ${Python3_FOUND}) or pybind11 "
      "(found: ${pybind11_FOUND}) are missing; Debian has them in python3-dev and pybind11-dev")
  else()
    message(STATUS "Without Python: its headers and library, or pybind11, were not found")
  endif()
endif()
