#include "apps/agent/MountNotes.h"

#include <fmt/format.h>

#include "platform/mount/TableBase.h"

namespace Agent {

namespace {

std::string doneText( const Brane::AttachReport& report ) {
   switch ( report.status ) {
      case Brane::attachOtherKey:
      case Brane::attachDamaged:
         return "made anew, empty";
      default:
         return fmt::format( "{} records kept, {} dropped", report.survivors,
                             report.dropped );
   }
}

}

std::vector<std::string> mountNotes(
   const std::string& where,
   const std::vector<const MoxBrane::MountedEntity*>& entities ) {
   std::vector<std::string> notes;
   size_t rebooted = 0;
   for ( const MoxBrane::MountedEntity* entity : entities ) {
      for ( const MoxBrane::TableBase* table : entity->tables() ) {
         const Brane::AttachReport& report = table->writer()->attachReport();
         const std::string& problem = table->control()->problem();
         if ( report.status == Brane::attachOtherBoot ) {
            ++rebooted;
         } else if ( !problem.empty() ) {
            notes.push_back( problem + ": " + doneText( report ) );
         }
      }
   }
   if ( rebooted != 0 )
      notes.push_back(
         fmt::format( "{}: {} tables are from before a reboot: made anew, empty",
                      where, rebooted ) );
   return notes;
}

}
