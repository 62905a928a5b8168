# velmora_fltk: an imported library of FLTK 1.3 and the X library under it, when both are there.
#
# FLTK's own configuration drags in whatever it was built with; its header tells the version.

find_path(VELMORA_FLTK_INCLUDE FL/Fl.H)
find_library(VELMORA_FLTK_LIBRARY fltk)
find_package(X11 QUIET)
mark_as_advanced(VELMORA_FLTK_INCLUDE VELMORA_FLTK_LIBRARY)

if(VELMORA_FLTK_INCLUDE AND VELMORA_FLTK_LIBRARY AND X11_FOUND)
  file(STRINGS "${VELMORA_FLTK_INCLUDE}/FL/Enumerations.H" version
       REGEX "^#define FL_(MAJOR|MINOR)_VERSION")
  if("${version}" MATCHES "MAJOR_VERSION[ \t]+1.*MINOR_VERSION[ \t]+3")
    add_library(velmora_fltk INTERFACE)
    target_include_directories(velmora_fltk SYSTEM INTERFACE "${VELMORA_FLTK_INCLUDE}"
                                                             ${X11_INCLUDE_DIR})
    target_link_libraries(velmora_fltk INTERFACE "${VELMORA_FLTK_LIBRARY}" ${X11_LIBRARIES})
  endif()
endif()
