# Layers of the library: one object library per source folder.
#
# kafx_add_layer(<folder> [DEPENDS <lower folders>...] [EXCLUDE <file names>...])
#   Globs <folder>/*.cpp (minus EXCLUDE) into the object library
#   kafx_<folder>, which links the layers it DEPENDS on, and appends its
#   objects to KAFX_LAYER_OBJECTS. A folder without sources adds nothing
#   (the glob is re-checked at build time, so new files are picked up).
#   Its files named *_neon.cpp (NEON kernels) are compiled with
#   KAFX_NEON_FILE_FLAGS where that is set (clang on 32-bit ARM).
#
# kafx_layer_settings(<target> <visible private folders>...)
#   The compile settings every library object shares, and its private include
#   root: a folder in the build tree holding links to exactly the private
#   folders the target may include from ("common/...", "<own folder>/...").

set(KAFX_VIEW_ROOT ${CMAKE_BINARY_DIR}/layer_views)

function(kafx_layer_view name)
  set(view ${KAFX_VIEW_ROOT}/${name})
  file(MAKE_DIRECTORY ${view})
  foreach(folder ${ARGN})
    if(NOT EXISTS ${view}/${folder})
      file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${folder} ${view}/${folder} SYMBOLIC)
    endif()
  endforeach()
endfunction()

# The library's objects are integer DSP loops: on x86-64, in the default
# optimised build type (RelWithDebInfo, -O2), they are compiled at -O3 all
# the same, for GCC's loop vectoriser and unroller (its -O2 cost model leaves
# the feed-forward sums and the conversions scalar). Integer code gives the
# same results at any level. ARM builds keep -O2, the level their kernels
# were timed at (scripts/arm-estimate.sh). Release is -O3 already; Debug and
# MinSizeRel keep their own levels.
function(kafx_kernel_optimisation target)
  if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
    target_compile_options(${target} PRIVATE $<$<CONFIG:RelWithDebInfo>:-O3>)
  endif()
endfunction()

function(kafx_layer_settings target own)
  kafx_layer_view(${own} ${own} ${ARGN})
  target_include_directories(${target}
    PUBLIC  $<BUILD_INTERFACE:${CMAKE_SOURCE_DIR}/include>
    PRIVATE ${KAFX_VIEW_ROOT}/${own})
  target_include_directories(${target} SYSTEM PRIVATE ${ANDROID_LOG_INCLUDE_DIR})
  target_compile_definitions(${target} PRIVATE KAFX_BUILDING_LIBRARY TIXML_USE_STL)
  # Only the C interface is exported; internal helpers stay hidden.
  set_target_properties(${target} PROPERTIES
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE -fno-exceptions -fno-rtti -fno-semantic-interposition)
  kafx_kernel_optimisation(${target})
  if(KAFX_USE_LTO)
    set_property(TARGET ${target} PROPERTY INTERPROCEDURAL_OPTIMIZATION ON)
  endif()
endfunction()

function(kafx_add_layer folder)
  cmake_parse_arguments(L "" "" "DEPENDS;EXCLUDE" ${ARGN})
  file(GLOB src CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${folder}/*.cpp)
  foreach(x ${L_EXCLUDE})
    list(REMOVE_ITEM src ${CMAKE_SOURCE_DIR}/${folder}/${x})
  endforeach()
  if(NOT src)
    return()
  endif()
  set(target kafx_${folder})
  add_library(${target} OBJECT ${src})
  # The NEON kernels' files, where the compiler needs NEON for the whole file
  # (clang on 32-bit ARM; KAFX_NEON_FILE_FLAGS in CMakeLists.txt).
  if(KAFX_NEON_FILE_FLAGS)
    set(neon_src ${src})
    list(FILTER neon_src INCLUDE REGEX "_neon\\.cpp$")
    if(neon_src)
      set_source_files_properties(${neon_src} PROPERTIES COMPILE_OPTIONS "${KAFX_NEON_FILE_FLAGS}")
    endif()
  endif()
  if(folder STREQUAL "common")
    kafx_layer_settings(${target} common)
  else()
    kafx_layer_settings(${target} ${folder} common)
  endif()
  foreach(dep ${L_DEPENDS})
    if(TARGET kafx_${dep})
      target_link_libraries(${target} PUBLIC kafx_${dep})
    endif()
  endforeach()
  if(folder STREQUAL "speaker")
    target_include_directories(${target} SYSTEM PRIVATE ${TINYXML_INCLUDE_DIR})
  endif()
  set(KAFX_LAYER_OBJECTS ${KAFX_LAYER_OBJECTS} $<TARGET_OBJECTS:${target}> PARENT_SCOPE)
endfunction()
