#include "published/Vrfs.h"

#include <grp.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>

#include "export/Status.h"
#include "platform/shm/Error.h"
#include "platform/shm/TableFiles.h"
#include "platform/shm/WriterSeat.h"
#include "platform/trace/Trace.h"

namespace Published {

MOX_TRACE_FACILITY( vrfTrace, "Pimsm::Published" )

namespace {

// The directory that holds one family's VRFs, relative to the root.
std::string directoryOf( Vantu::AddressFamily family ) {
   const std::string any = Routing::Pim::SparseMode::Brane::Status::mountPath(
      family, L3::VrfName( "x" ) );
   return any.substr( 0, any.size() - 2 );
}

// The advice to a user who is refused: join the group of the nearest visible
// directory. Where that group is root's, only root may look.
std::string remedy( std::filesystem::path path ) {
   struct stat status;
   while ( stat( path.c_str(), &status ) != 0 ) {
      if ( path == path.parent_path() ) return "ask its owner";
      path = path.parent_path();
   }
   if ( status.st_gid == 0 ) return "only root may look, as with sudo";
   const group* entry = getgrgid( status.st_gid );
   return "join the group " +
          ( entry != nullptr ? entry->gr_name : std::to_string( status.st_gid ) ) +
          ", as usermod -aG does";
}

}

std::vector<L3::VrfName> vrfsUnder( const std::string& root,
                                    Vantu::AddressFamily family ) {
   const auto directory = std::filesystem::path( root ) / directoryOf( family );
   std::vector<L3::VrfName> names;
   std::error_code missing;
   std::filesystem::directory_iterator entries( directory, missing );
   if ( missing == std::errc::permission_denied ) {
      throw UnreadableDirectoryError(
         directory.string() + ": permission denied: " + remedy( directory ) );
   }
   for ( const auto& entry : entries ) {
      const std::string name = entry.path().filename();
      if ( name.size() > L3::VrfName::maxLength ) continue;
      if ( std::filesystem::exists( entry.path() / "route", missing ) )
         names.emplace_back( name );
   }
   return names;
}

void removeTablesUnder( const std::vector<std::string>& directories,
                        const std::string& seat ) {
   std::error_code ignored;
   std::set<std::string> tables;  // tables have several files: "route", "route.new"
   for ( const std::string& directory : directories ) {
      for ( const auto& entry :
            std::filesystem::directory_iterator( directory, ignored ) )
         tables.insert( entry.path().parent_path() / entry.path().stem() );
   }
   const std::string name = std::filesystem::path( seat ).filename();
   try {
      Brane::WriterSeat held( seat );
      for ( const std::string& table : tables ) {
         if ( std::filesystem::path( table ).filename() != name )
            Brane::removeTableFiles( table );
      }
      for ( const std::string& directory : directories )
         std::filesystem::remove( directory + '/' + name + ".bell", ignored );
      held.removeFiles();
   } catch ( const Brane::TableError& e ) {
      MOX_TRACE( vrfTrace, 0, e.what() );
   }
   for ( const std::string& directory : directories ) {
      if ( std::filesystem::is_directory( directory, ignored ) )
         std::filesystem::remove( directory, ignored );
   }
}

}
