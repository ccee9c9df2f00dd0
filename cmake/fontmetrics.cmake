# Metric files of the standard PostScript fonts, made at build time from
# the metric-compatible URW fonts of fonts-urw-base35 and Ghostscript's font
# map: ${QL_BUILD_DATADIR}/fontmetrics/afm/<Name>.afm for every font of
# data/psstd.fonts, installed under share/qualin/fontmetrics/afm.  Needs
# QL_BUILD_DATADIR, QL_DATA_ENTRIES and the library targets.

set(QL_URW_AFM_DIR "/usr/share/fonts/type1/urw-base35" CACHE PATH
  "AFM files of the URW base 35 fonts (package fonts-urw-base35)")
set(QL_GS_FONTMAP "" CACHE FILEPATH
  "Ghostscript's Fontmap.GS (package ghostscript); empty: the newest Ghostscript's")
set(_ql_fontmap "${QL_GS_FONTMAP}")
if(NOT _ql_fontmap)
  file(GLOB _ql_fontmaps /usr/share/ghostscript/*/Resource/Init/Fontmap.GS)
  if(_ql_fontmaps)
    list(SORT _ql_fontmaps COMPARE NATURAL ORDER DESCENDING)
    list(GET _ql_fontmaps 0 _ql_fontmap)
  endif()
endif()

file(GLOB QL_URW_AFMS "${QL_URW_AFM_DIR}/*.afm")
if(NOT QL_URW_AFMS)
  message(FATAL_ERROR "No AFM files in ${QL_URW_AFM_DIR}: the font metrics are made from "
    "the package fonts-urw-base35; install it (make bootstrap) or set QL_URW_AFM_DIR")
endif()
if(NOT _ql_fontmap OR NOT EXISTS "${_ql_fontmap}")
  message(FATAL_ERROR "Ghostscript's font map (Resource/Init/Fontmap.GS) not found: it says which "
    "URW font stands for which standard font; install the package ghostscript or set QL_GS_FONTMAP")
endif()

# A real directory, never a link into the source tree: taken out of the
# data entries that are linked whole (included before that loop), and
# entries that data/fontmetrics may bring are linked one by one.
list(REMOVE_ITEM QL_DATA_ENTRIES "${PROJECT_SOURCE_DIR}/data/fontmetrics")
set(QL_AFM_DIR "${QL_BUILD_DATADIR}/fontmetrics/afm")
if(IS_SYMLINK "${QL_BUILD_DATADIR}/fontmetrics")
  file(REMOVE "${QL_BUILD_DATADIR}/fontmetrics")
endif()
file(MAKE_DIRECTORY "${QL_AFM_DIR}")
file(GLOB _ql_shipped_metrics "${PROJECT_SOURCE_DIR}/data/fontmetrics/*")
foreach(entry ${_ql_shipped_metrics})
  get_filename_component(name ${entry} NAME)
  if(name STREQUAL "afm")
    file(GLOB _ql_shipped_afms "${entry}/*")
    foreach(afm ${_ql_shipped_afms})
      get_filename_component(afmname ${afm} NAME)
      file(CREATE_LINK ${afm} "${QL_AFM_DIR}/${afmname}" SYMBOLIC)
    endforeach()
  else()
    file(CREATE_LINK ${entry} "${QL_BUILD_DATADIR}/fontmetrics/${name}" SYMBOLIC)
  endif()
endforeach()

set(QL_FONT_LIST "${PROJECT_SOURCE_DIR}/data/psstd.fonts")
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${QL_FONT_LIST}")
file(STRINGS "${QL_FONT_LIST}" _ql_font_lines REGEX "^[^#].*,")
set(QL_AFM_FILES "")
foreach(line ${_ql_font_lines})
  string(REGEX REPLACE ",.*" "" name "${line}")
  string(STRIP "${name}" name)
  list(APPEND QL_AFM_FILES "${QL_AFM_DIR}/${name}.afm")
endforeach()
list(REMOVE_DUPLICATES QL_AFM_FILES)  # a font is listed once per encoding

set(_ql_afm_script "${PROJECT_SOURCE_DIR}/scripts/make-fontmetrics")
add_custom_command(
  OUTPUT ${QL_AFM_FILES}
  COMMAND sh ${_ql_afm_script} ${QL_FONT_LIST} ${_ql_fontmap} ${QL_URW_AFM_DIR} ${QL_AFM_DIR}
  DEPENDS ${_ql_afm_script} ${QL_FONT_LIST} ${_ql_fontmap} ${QL_URW_AFMS}
  COMMENT "Font metrics of the standard PostScript fonts, from fonts-urw-base35"
  VERBATIM)
add_custom_target(ql_fontmetrics ALL DEPENDS ${QL_AFM_FILES})
# Whatever links the library (tests, the demo) finds the metrics in place.
add_dependencies(qualin ql_fontmetrics)
add_dependencies(qualin_static ql_fontmetrics)

install(FILES ${QL_AFM_FILES} DESTINATION ${CMAKE_INSTALL_DATADIR}/qualin/fontmetrics/afm)
