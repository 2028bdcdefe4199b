# One CMake target a folder.
#
# pimsm_folder( NAME net DEPS base entity ) makes the static library pimsm_net
# from the folder's sources, records its declared dependencies for
# tools/check-includes, and puts its objects into libPimsm.so, or into that of the
# LIBRARY that it names.

set( PIMSM_DEPS_FILE ${PROJECT_BINARY_DIR}/folder-deps.txt )
file( WRITE ${PIMSM_DEPS_FILE} "" )

include( CheckIncludeFileCXX )

add_library( pimsm_options INTERFACE )
target_compile_features( pimsm_options INTERFACE cxx_std_20 )
target_include_directories( pimsm_options INTERFACE ${PROJECT_SOURCE_DIR} )
# Boost's headers are the system's: their warnings are not ours to mend.
target_compile_options( pimsm_options INTERFACE
   -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
   -Wcast-align )
if( CMAKE_CXX_COMPILER_ID STREQUAL "Clang" )
   # An entity's nested observer hides hooks by key deliberately.
   target_compile_options( pimsm_options INTERFACE -Wno-gnu-zero-variadic-macro-arguments )
endif()
if( PIMSM_DEVELOPER )
   target_compile_options( pimsm_options INTERFACE -Werror )
endif()
if( PIMSM_ATOMIC_PTR )
   target_compile_definitions( pimsm_options INTERFACE PIMSM_ATOMIC_PTR=1 )
endif()
check_include_file_cxx( sys/sdt.h PIMSM_SDT )
if( NOT PIMSM_SDT )
   message( STATUS "No static probes: sys/sdt.h is missing (systemtap-sdt-dev)" )
endif()
if( PIMSM_SANITIZE )
   target_compile_options( pimsm_options INTERFACE
      -fsanitize=${PIMSM_SANITIZE} -fno-omit-frame-pointer )
   target_link_options( pimsm_options INTERFACE -fsanitize=${PIMSM_SANITIZE} )
   # g++ 12 finds std::regex uninitialized where the sanitizers are in its way.
   if( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" )
      target_compile_options( pimsm_options INTERFACE -Wno-maybe-uninitialized )
   endif()
   if( PIMSM_SANITIZE MATCHES "undefined" )
      target_compile_options( pimsm_options INTERFACE -fno-sanitize-recover=all )
   endif()
endif()

option( PIMSM_LIBFUZZER "Build the fuzz targets with libFuzzer (clang)" OFF )
if( PIMSM_LIBFUZZER )
   target_compile_options( pimsm_options INTERFACE -fsanitize=fuzzer-no-link )
endif()

set( CMAKE_CXX_EXTENSIONS OFF )
set( CMAKE_POSITION_INDEPENDENT_CODE ON )
set( CMAKE_CXX_VISIBILITY_PRESET hidden )
set( CMAKE_VISIBILITY_INLINES_HIDDEN ON )

function( pimsm_folder )
   cmake_parse_arguments( F "" "NAME;LIBRARY" "DEPS;LIBS" ${ARGN} )
   if( NOT F_LIBRARY )
      set( F_LIBRARY Pimsm )
   endif()
   file( GLOB sources CONFIGURE_DEPENDS *.cpp detail/*.cpp )
   if( NOT sources )
      # A folder of headers alone still is a target, so that it compiles alone.
      file( WRITE ${CMAKE_CURRENT_BINARY_DIR}/empty.cpp "" )
      set( sources ${CMAKE_CURRENT_BINARY_DIR}/empty.cpp )
   endif()
   add_library( pimsm_${F_NAME} STATIC ${sources} )
   target_compile_definitions( pimsm_${F_NAME} PRIVATE PIMSM_BUILDING )
   list( TRANSFORM F_DEPS PREPEND pimsm_ OUTPUT_VARIABLE deps )
   target_link_libraries( pimsm_${F_NAME} PUBLIC pimsm_options ${deps} ${F_LIBS} )
   pimsm_declare_folder( ${F_NAME} ${F_DEPS} )
   set_property( GLOBAL APPEND PROPERTY FOLDERS_OF_${F_LIBRARY} pimsm_${F_NAME} )
endfunction()

# Records "folder: name deps..." for tools/check-includes.
function( pimsm_declare_folder name )
   file( RELATIVE_PATH folder ${PROJECT_SOURCE_DIR} ${CMAKE_CURRENT_SOURCE_DIR} )
   list( JOIN ARGN " " deps )
   file( APPEND ${PIMSM_DEPS_FILE} "${folder}: ${name} ${deps}\n" )
endfunction()

# pimsm_shared_library( Pimsm fmt::fmt ): the library of that name of its folders, linked
# with what follows.
function( pimsm_shared_library name )
   get_property( folders GLOBAL PROPERTY FOLDERS_OF_${name} )
   set( objects "" )
   foreach( folder IN LISTS folders )
      list( APPEND objects $<TARGET_OBJECTS:${folder}> )
   endforeach()
   add_library( ${name} SHARED ${objects} )
   # By the name that find_package gives it, where the project is part of another.
   add_library( Pimsm::${name} ALIAS ${name} )
   set_target_properties( ${name} PROPERTIES
      VERSION ${PROJECT_VERSION} SOVERSION 1 LINKER_LANGUAGE CXX )
   target_link_libraries( ${name} PUBLIC
      $<BUILD_INTERFACE:pimsm_options> ${ARGN} Boost::headers )
   # A sanitizer's runtime comes with the program.
   if( NOT PIMSM_SANITIZE )
      target_link_options( ${name} PRIVATE -Wl,--no-undefined )
   endif()
endfunction()

# The include rule is part of every build.
function( pimsm_check_includes )
   add_custom_target( check-includes ALL
      COMMAND python3 ${PROJECT_SOURCE_DIR}/tools/check-includes
              ${PROJECT_SOURCE_DIR} ${PIMSM_DEPS_FILE}
      COMMENT "Checking the include rule" VERBATIM )
endfunction()
