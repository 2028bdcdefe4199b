# The places of cmake --install: the library with its public headers, the files by
# which other projects find it, and the programs.
#
# The headers lie under include/pimsm as they do here: both <pimsm/model/Status.h> and
# "model/Status.h" are found, and tools/install-headers has them include each other by the
# first.

include( GNUInstallDirs )
include( CMakePackageConfigHelpers )

function( pimsm_install )
   set( headers ${CMAKE_INSTALL_INCLUDEDIR}/pimsm )
   target_compile_features( Pimsm PUBLIC cxx_std_20 )
   target_include_directories( Pimsm INTERFACE
      $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}> $<INSTALL_INTERFACE:${headers}>
      $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/headers> )
   # For projects that include this one: the headers as installed.
   set( public platform model export register count ssm frr published assembly packet engine router )
   list( TRANSFORM public APPEND "/*.h" OUTPUT_VARIABLE patterns )
   file( GLOB_RECURSE sources RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS ${patterns} )
   set( made ${PROJECT_BINARY_DIR}/headers/pimsm )
   # Known to the build, so that whoever includes a copy is compiled after it, not before.
   list( FILTER sources EXCLUDE REGEX "/detail/" )
   list( TRANSFORM sources PREPEND ${made}/ OUTPUT_VARIABLE copies )
   list( TRANSFORM sources PREPEND ${PROJECT_SOURCE_DIR}/ )
   add_custom_command( OUTPUT ${made}.stamp BYPRODUCTS ${copies} ${made}/pimsm.h
      COMMAND ${PROJECT_SOURCE_DIR}/tools/install-headers ${PROJECT_SOURCE_DIR} ${made} ${public}
      COMMAND ${CMAKE_COMMAND} -E touch ${made}.stamp
      DEPENDS ${sources} pimsm.h tools/install-headers VERBATIM )
   add_custom_target( pimsm-headers ALL DEPENDS ${made}.stamp )
   add_dependencies( Pimsm pimsm-headers )
   list( JOIN public " " public )
   set( PIMSM_PC_CFLAGS "" )
   if( PIMSM_ATOMIC_PTR )
      # Users of the library must count references as it does.
      target_compile_definitions( Pimsm INTERFACE PIMSM_ATOMIC_PTR=1 )
      set( PIMSM_PC_CFLAGS "-DPIMSM_ATOMIC_PTR=1" )
   endif()

   install( TARGETS Pimsm PimsmRouter EXPORT PimsmTargets
      LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} )
   install( TARGETS pimsm-agent pimsm-show pimsm-fleet
      RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} )
   install( TARGETS pimsm-mfib pimsm-record RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR} )
   install( FILES doc/man/pimsm-agent.1 doc/man/pimsm-show.1 doc/man/pimsm-fleet.1
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 )
   install( FILES doc/man/pimsm-mfib.8 doc/man/pimsm-record.8
      DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 )
   install( FILES apps/show/metrics/pimsm.rules.yaml
      apps/show/metrics/pimsm-dashboard.json
      DESTINATION ${CMAKE_INSTALL_DATADIR}/pimsm )
   install( FILES apps/json/yang/pimsm-state.yang
      DESTINATION ${CMAKE_INSTALL_DATADIR}/yang/modules/pimsm )
   foreach( program IN ITEMS pimsm-agent pimsm-show pimsm-mfib pimsm-record pimsm-fleet )
      install( FILES apps/completion.bash RENAME ${program}
         DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions )
   endforeach()
   install( CODE "execute_process( COMMAND_ERROR_IS_FATAL ANY COMMAND
      ${PROJECT_SOURCE_DIR}/tools/install-headers ${PROJECT_SOURCE_DIR}
      \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${headers}\"
      ${public} )" )

   # The services, with the programs' path; systemd also looks below /usr/local.
   foreach( service IN ITEMS agent:${CMAKE_INSTALL_FULL_BINDIR} mfib:${CMAKE_INSTALL_FULL_SBINDIR}
         record:${CMAKE_INSTALL_FULL_SBINDIR} )
      string( REPLACE ":" ";" service ${service} )
      list( GET service 0 name )
      list( GET service 1 programs )
      file( READ debian/pimsm-tools.pimsm-${name}.service unit )
      string( REGEX REPLACE "ExecStart=/usr/s?bin/" "ExecStart=${programs}/" unit "${unit}" )
      file( WRITE ${CMAKE_CURRENT_BINARY_DIR}/pimsm-${name}.service "${unit}" )
      install( FILES ${CMAKE_CURRENT_BINARY_DIR}/pimsm-${name}.service
         DESTINATION lib/systemd/system )
   endforeach()
   install( FILES debian/pimsm-tools.tmpfiles RENAME pimsm.conf DESTINATION lib/tmpfiles.d )
   install( FILES debian/pimsm-tools.sysusers RENAME pimsm.conf DESTINATION lib/sysusers.d )
   file( GLOB guides doc/*.md )
   install( FILES README.md CHANGELOG.md ${guides} DESTINATION ${CMAKE_INSTALL_DOCDIR} )
   install( DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} USE_SOURCE_PERMISSIONS )

   set( config ${CMAKE_INSTALL_LIBDIR}/cmake/Pimsm )
   configure_package_config_file( cmake/PimsmConfig.cmake.in PimsmConfig.cmake
      INSTALL_DESTINATION ${config} NO_SET_AND_CHECK_MACRO )
   # Before 1.0 any minor version may break programs built against it.
   write_basic_package_version_file( PimsmConfigVersion.cmake
      COMPATIBILITY SameMinorVersion )
   install( EXPORT PimsmTargets NAMESPACE Pimsm:: DESTINATION ${config} )
   install( FILES ${CMAKE_CURRENT_BINARY_DIR}/PimsmConfig.cmake
      ${CMAKE_CURRENT_BINARY_DIR}/PimsmConfigVersion.cmake DESTINATION ${config} )

   # The prefix follows from the file's own place, so that a moved tree is found as
   # well.
   cmake_path( RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR
      BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} OUTPUT_VARIABLE libdir )
   cmake_path( SET up NORMALIZE "${libdir}/pkgconfig" )
   string( REGEX REPLACE "[^/]+" ".." PIMSM_PC_UP "${up}" )
   configure_file( cmake/pimsm.pc.in pimsm.pc @ONLY )
   configure_file( cmake/pimsm-router.pc.in pimsm-router.pc @ONLY )
   install( FILES ${CMAKE_CURRENT_BINARY_DIR}/pimsm.pc
      ${CMAKE_CURRENT_BINARY_DIR}/pimsm-router.pc
      DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig )
endfunction()
