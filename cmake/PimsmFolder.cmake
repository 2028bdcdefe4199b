# One CMake target a folder, which links only what the folder declares.
#
# pimsm_folder( NAME net DEPS base entity LIBS fmt::fmt ) makes the static library
# pimsm_net from the folder's sources except main.cpp, and puts its objects into
# libPimsm.so, or into the LIBRARY that it names. Below apps/, where the libraries
# are complete, a folder is part of neither, and links the library of a declared
# folder.
#
# pimsm_executable( NAME pimsm-agent DEPS agent ) makes the program of the folder's main.cpp.
#
# DEPS are folders that stand before it, LIBS libraries of PimsmExternal.cmake. Both are
# recorded for tools/check-includes, which looks at what the sources include, and for
# pimsm_check_links(), which looks at what the targets link.

set( PIMSM_DEPS_FILE ${PROJECT_BINARY_DIR}/folder-deps.txt )
file( WRITE ${PIMSM_DEPS_FILE} "" )

include( CheckIncludeFileCXX )

add_library( pimsm_options INTERFACE )
target_compile_features( pimsm_options INTERFACE cxx_std_20 )
target_include_directories( pimsm_options INTERFACE ${PROJECT_SOURCE_DIR} )
# Boost's headers count as the system's: their warnings are not ours to fix.
target_compile_options( pimsm_options INTERFACE
   -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
   -Wcast-align )
if( CMAKE_CXX_COMPILER_ID STREQUAL "Clang" )
   # An entity's nested observer hides hooks by key deliberately.
   target_compile_options( pimsm_options INTERFACE -Wno-gnu-zero-variadic-macro-arguments )
endif()
if( PIMSM_DEVELOPER )
   target_compile_options( pimsm_options INTERFACE -Werror )
   # No unit needs 2 GB: collecting garbage earlier takes a tenth of the time.
   if( CMAKE_CXX_COMPILER_ID STREQUAL "GNU" )
      target_compile_options( pimsm_options INTERFACE
         --param=ggc-min-expand=200 --param=ggc-min-heapsize=2000000 )
   endif()
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
   # g++ 12 reports std::regex as uninitialized under the sanitizers.
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
   file( GLOB sources CONFIGURE_DEPENDS *.cpp detail/*.cpp )
   list( FILTER sources EXCLUDE REGEX "/main\\.cpp$" )
   if( NOT sources )
      # A folder of headers alone is a target too, so that each header compiles
      # alone.
      file( WRITE ${CMAKE_CURRENT_BINARY_DIR}/empty.cpp "" )
      set( sources ${CMAKE_CURRENT_BINARY_DIR}/empty.cpp )
   endif()
   set( target pimsm_${F_NAME} )
   add_library( ${target} STATIC ${sources} )
   pimsm_declare( ${target} ${CMAKE_CURRENT_SOURCE_DIR} "${F_DEPS}" "${F_LIBS}" )
   if( TARGET Pimsm )
      target_compile_definitions( ${target} PRIVATE PIMSM_VERSION="${PROJECT_VERSION}" )
      return()
   endif()
   if( NOT F_LIBRARY )
      set( F_LIBRARY Pimsm )
   endif()
   target_compile_definitions( ${target} PRIVATE PIMSM_BUILDING )
   set_target_properties( ${target} PROPERTIES PIMSM_PART_OF ${F_LIBRARY} )
   set_property( GLOBAL APPEND PROPERTY FOLDERS_OF_${F_LIBRARY} ${target} )
endfunction()

function( pimsm_executable )
   cmake_parse_arguments( E "" "NAME" "DEPS;LIBS" ${ARGN} )
   add_executable( ${E_NAME} main.cpp )
   target_compile_definitions( ${E_NAME} PRIVATE PIMSM_VERSION="${PROJECT_VERSION}" )
   pimsm_declare( ${E_NAME} ${CMAKE_CURRENT_SOURCE_DIR}/main.cpp "${E_DEPS}" "${E_LIBS}" )
endfunction()

# Links what is declared and records it, for tools/check-includes as a line
# "platform/net: pimsm_net pimsm_base pimsm_entity fmt::fmt".
function( pimsm_declare target path deps libs )
   set( links pimsm_options ${libs} )
   foreach( dep IN LISTS deps )
      if( NOT TARGET pimsm_${dep} )
         message( FATAL_ERROR "${target} declares ${dep}, which does not stand before it" )
      endif()
      get_target_property( library pimsm_${dep} PIMSM_PART_OF )
      if( TARGET "${library}" )
         list( APPEND links ${library} )
      else()
         list( APPEND links pimsm_${dep} )
      endif()
   endforeach()
   list( REMOVE_DUPLICATES links )
   get_target_property( type ${target} TYPE )
   if( type STREQUAL "EXECUTABLE" )
      target_link_libraries( ${target} PRIVATE ${links} )
   else()
      target_link_libraries( ${target} PUBLIC ${links} )
   endif()
   set_target_properties( ${target} PROPERTIES PIMSM_DECLARED "${links}" )
   set_property( GLOBAL APPEND PROPERTY PIMSM_DIRECTORIES ${CMAKE_CURRENT_SOURCE_DIR} )
   file( RELATIVE_PATH where ${PROJECT_SOURCE_DIR} ${path} )
   list( TRANSFORM deps PREPEND pimsm_ )
   list( JOIN deps " " deps )
   list( JOIN libs " " libs )
   file( APPEND ${PIMSM_DEPS_FILE} "${where}: ${target} ${deps} ${libs}\n" )
endfunction()

# Fails if a target links a folder or library that it does not declare, or is not
# declared itself. Called last: later calls could add links.
function( pimsm_check_links )
   get_property( directories GLOBAL PROPERTY PIMSM_DIRECTORIES )
   list( REMOVE_DUPLICATES directories )
   foreach( directory IN LISTS directories )
      get_property( targets DIRECTORY ${directory} PROPERTY BUILDSYSTEM_TARGETS )
      foreach( target IN LISTS targets )
         get_target_property( declared ${target} PIMSM_DECLARED )
         set( links "" )
         foreach( property IN ITEMS LINK_LIBRARIES INTERFACE_LINK_LIBRARIES )
            get_target_property( some ${target} ${property} )
            if( some )
               list( APPEND links ${some} )
            endif()
         endforeach()
         # Skips a static library's private links, and the marks of calls from
         # another directory.
         list( TRANSFORM links REPLACE "^\\$<LINK_ONLY:(.*)>$" "\\1" )
         list( FILTER links EXCLUDE REGEX "^::@" )
         list( REMOVE_ITEM links ${declared} )
         list( REMOVE_DUPLICATES links )
         if( links OR NOT declared )
            message( SEND_ERROR "${target} links what ${directory} does not declare: ${links}" )
         endif()
      endforeach()
   endforeach()
endfunction()

# pimsm_shared_library( Pimsm fmt::fmt ): the library of that name from its folders,
# linked with the libraries that follow.
function( pimsm_shared_library name )
   get_property( folders GLOBAL PROPERTY FOLDERS_OF_${name} )
   set( objects "" )
   foreach( folder IN LISTS folders )
      list( APPEND objects $<TARGET_OBJECTS:${folder}> )
   endforeach()
   add_library( ${name} SHARED ${objects} )
   # The name that find_package uses, for a project that includes this one.
   add_library( Pimsm::${name} ALIAS ${name} )
   set_target_properties( ${name} PROPERTIES
      VERSION ${PROJECT_VERSION} SOVERSION 1 LINKER_LANGUAGE CXX )
   # Users of the library get neither the warnings nor the source tree's header
   # paths.
   target_link_libraries( ${name} PRIVATE $<BUILD_INTERFACE:pimsm_options> )
   target_link_libraries( ${name} PUBLIC ${ARGN} Boost::headers )
   # A sanitizer's runtime comes with the program.
   if( NOT PIMSM_SANITIZE )
      target_link_options( ${name} PRIVATE -Wl,--no-undefined )
   endif()
endfunction()

# The include rule is part of every build.
function( pimsm_check_includes )
   add_custom_target( check-includes ALL
      COMMAND python3 ${PROJECT_SOURCE_DIR}/tools/check-includes
              ${PROJECT_SOURCE_DIR} ${PIMSM_DEPS_FILE} ${PIMSM_EXTERNAL_FILE}
      COMMENT "Checking the include rule" VERBATIM )
endfunction()
