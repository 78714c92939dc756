# Forms and the viewer are optional; they need Qt 5 and OpenGL.
set(KELVARIS_HAVE_GUI OFF)
if(NOT KELVARIS_GUI STREQUAL "OFF")
  find_package(Qt5 5.15 QUIET COMPONENTS Widgets)
  if(Qt5_FOUND AND KELVARIS_GL)
    set(KELVARIS_HAVE_GUI ON)
    # signals, slots and emit clash with names of other headers.
    add_compile_definitions(QT_NO_KEYWORDS)
  elseif(KELVARIS_GUI STREQUAL "ON")
    message(FATAL_ERROR "KELVARIS_GUI=ON, but Qt 5.15 Widgets (found: ${Qt5_FOUND}) or OpenGL (KELVARIS_GL: ${KELVARIS_GL}) "
      "is missing; Debian has the first in qtbase5-dev")
  else()
    message(STATUS "Without forms and viewer: Qt 5.15 Widgets was not found, or KELVARIS_GL is OFF")
  endif()
endif()

# kelvaris_qt(TARGET...): runs Qt's compilers for Q_OBJECT and for .ui files on the targets.
function(kelvaris_qt)
  foreach(target ${ARGN})
    set_target_properties(${target} PROPERTIES AUTOMOC ON AUTOUIC ON)
  endforeach()
endfunction()

# kelvaris_gui_test(NAME SOURCES file... [LINK target...])
# A kelvaris_test with a QApplication, which needs no display, and with QtTest.
function(kelvaris_gui_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  find_package(Qt5 5.15 REQUIRED COMPONENTS Test)
  kelvaris_test(${name} GUI SOURCES ${ARG_SOURCES} ${CMAKE_SOURCE_DIR}/tests/support/GuiEnvironment.cpp
    LINK ${ARG_LINK} Qt5::Widgets Qt5::Test)
  kelvaris_qt(${name})
endfunction()
