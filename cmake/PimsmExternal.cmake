# The external libraries, and the headers by which a source uses each.
#
# pimsm_external( fmt::fmt fmt/ ): the target, then the prefixes of its headers'
# names. A folder that includes one of them declares the target in its LIBS, even if
# another library links it: tools/check-includes reads the table.

set( PIMSM_EXTERNAL_FILE ${PROJECT_BINARY_DIR}/external-libraries.txt )
file( WRITE ${PIMSM_EXTERNAL_FILE} "" )

function( pimsm_external target )
   list( JOIN ARGN " " headers )
   file( APPEND ${PIMSM_EXTERNAL_FILE} "${target}: ${headers}\n" )
endfunction()

# pimsm_found( pcap pcap/ ): the same for a library without a CMake package.
function( pimsm_found library )
   find_library( PIMSM_LIB_${library} ${library} REQUIRED )
   add_library( ${library}::${library} INTERFACE IMPORTED GLOBAL )
   target_link_libraries( ${library}::${library} INTERFACE ${PIMSM_LIB_${library}} )
   pimsm_external( ${library}::${library} ${ARGN} )
endfunction()

find_package( Boost 1.74 REQUIRED )
find_package( fmt REQUIRED )
find_package( CLI11 REQUIRED )
find_package( nlohmann_json REQUIRED )
find_package( yaml-cpp REQUIRED )
find_package( Threads REQUIRED )

pimsm_external( Boost::headers boost/ )
pimsm_external( fmt::fmt fmt/ )
pimsm_external( CLI11::CLI11 CLI/ )
pimsm_external( nlohmann_json::nlohmann_json nlohmann/ )
pimsm_external( yaml-cpp yaml-cpp/ )
pimsm_external( Threads::Threads )
pimsm_found( cap-ng cap-ng.h )
pimsm_found( lz4 lz4.h )
pimsm_found( mnl libmnl/ )
pimsm_found( nats nats/ )
pimsm_found( ncursesw curses.h ncurses )
pimsm_found( pcap pcap )
pimsm_found( sqlite3 sqlite3.h )
pimsm_found( systemd systemd/ )
pimsm_found( tinfo term.h termcap.h )
