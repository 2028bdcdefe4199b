// pimsm-show: prints the exported PIM state.

#include <set>

#include "apps/show/output/Print.h"
#include "apps/show/reports/StatusReport.h"
#include "apps/show/text/Words.h"
#include "published/Vrfs.h"

namespace Show {

namespace {

// The existing VRFs, for the message about a missing one; empty without any.
std::string othersText( const Selection& selection ) {
   std::set<std::string> names;
   for ( const auto family :
         { Vantu::AddressFamily::ipv4, Vantu::AddressFamily::ipv6 } )
      if ( !selection.family || selection.family == family )
         for ( const L3::VrfName& name :
               Published::vrfsUnder( selection.root, family ) )
            names.insert( name.name() );
   std::string text;
   for ( const std::string& name : names )
      text += ( text.empty() ? ": there are " : ", " ) + name;
   return text;
}

std::string noTablesText( const Selection& selection ) {
   std::string what = "no ";
   if ( selection.family ) what += familyName( *selection.family ) + ' ';
   what += "tables";
   std::string others;
   if ( selection.vrf != "all" ) {
      what += " of vrf " + selection.vrf;
      others = othersText( selection );
   }
   return what + " under " + selection.root +
          ( others.empty() ? ": start pimsm-agent, or name its --root" : others );
}

ExitStatus complainOf( const Mirrors::Unread& unread ) {
   const Mirror& mirror = *unread.mirror;
   const std::string text =
      mirrorText( mirror ) + ": " + unread.problem.text + ": ";
   if ( unread.problem.kind == Mirror::Problem::otherLayout )
      return complain( layoutNotSupported,
                       text + "use the pimsm-show of the agent's version" );
   if ( unread.problem.kind == Mirror::Problem::noFile )
      return complain( noTables, text + "remove it, and restart pimsm-agent" );
   const bool starting =
      unread.problem.kind == Mirror::Problem::missing && mirror.writerAlive();
   return complain(
      noTables, text + ( starting ? "pimsm-agent is still starting, or to be "
                                    "restarted, which makes it anew"
                                  : "restart pimsm-agent, which makes it anew" ) );
}

// Prints a line each. Returns the status of another layout if that is the only kind
// of problem, done without a problem.
ExitStatus complainOfAll( const std::vector<Mirrors::Unread>& unread ) {
   ExitStatus status = done;
   for ( const Mirrors::Unread& each : unread ) {
      const ExitStatus own = complainOf( each );
      if ( status != noTables ) status = own;
   }
   return status;
}

// Warns of records skipped as damaged or undecodable.
bool warnOfUnreadable( const std::string& where, uint64_t count ) {
   if ( count == 0 ) return false;
   complain( unverified,
             where + ": " + std::to_string( count ) +
                " unreadable records are left out; restart pimsm-agent, "
                "which removes them" );
   return true;
}

Mirrors::Part partOf( Command command ) {
   if ( command == registersCommand ) return Mirrors::registersPart;
   return command == advertisedCommand ? Mirrors::advertisedPart
                                       : Mirrors::routesPart;
}

ExitStatus printWhatIsThere( Mirrors& mirrors, const Arguments& arguments ) {
   ExitStatus result = print( mirrors, arguments );
   bool damaged = warnOfUnreadable( "the agent's process",
                                    unreadable( mirrors.agentProcess() ) );
   bool alive = true;
   for ( const auto& mirror : mirrors.all() ) {
      damaged |= warnOfUnreadable( mirrorText( *mirror ), mirror->unreadable() );
      alive = alive && mirror->writerAlive();
   }
   // For `check` the damage is a finding.
   if ( damaged && arguments.command != checkCommand ) return unverified;
   return result == done && !alive ? writerGone : result;
}

// One VRF and family after the other, however many there are.
ExitStatus runStatus( const Arguments& arguments ) {
   Mirrors mirrors( arguments.selection, Mirror::tablesOnly );
   Printout out( arguments, "pimsm-state:status", "" );
   std::vector<Mirrors::Unread> unread;
   bool alive = true;
   bool damaged = warnOfUnreadable( "the agent's process",
                                    unreadable( mirrors.agentProcess() ) );
   while ( mirrors.next() ) {
      for ( auto& each : mirrors.load() ) unread.push_back( std::move( each ) );
      for ( const auto& mirror : mirrors.all() ) {
         out.add(
            *mirror, [&] { return statusText( *mirror ); },
            [&] { return statusJson( *mirror ); } );
         damaged |= warnOfUnreadable( mirrorText( *mirror ), mirror->unreadable() );
         alive = alive && mirror->writerAlive();
      }
   }
   if ( out.first() && unread.empty() )
      return complain( noTables, noTablesText( arguments.selection ) );
   if ( !out.first() ) out.end();
   const ExitStatus missing = complainOfAll( unread );
   if ( missing != done ) return missing;
   if ( damaged ) return unverified;
   return alive ? done : writerGone;
}

ExitStatus run( const Arguments& arguments ) {
   if ( arguments.command == logCommand ) return printLog( arguments );
   if ( arguments.command == statusCommand ) return runStatus( arguments );
   // Never destroyed: the system frees a process's memory at once, while freeing
   // record by record would take nearly half of the time of a count.
   static Mirrors& mirrors = *new Mirrors( arguments.selection );
   const auto unread = mirrors.load( partOf( arguments.command ) );
   // A server waits for tables.
   if ( !arguments.listen.empty() ) return print( mirrors, arguments );
   if ( mirrors.all().empty() && unread.empty() )
      return complain( noTables, noTablesText( arguments.selection ) );
   if ( mirrors.all().empty() ) return complainOfAll( unread );
   // `watch` has no end, so the problems are reported now.
   ExitStatus missing = done;
   if ( arguments.command == watchCommand ) missing = complainOfAll( unread );
   const ExitStatus result = printWhatIsThere( mirrors, arguments );
   if ( arguments.command != watchCommand ) missing = complainOfAll( unread );
   return missing != done ? missing : result;
}

ExitStatus runCommand( int argc, char** argv ) {
   try {
      const auto arguments = parseArguments( argc, argv );
      return arguments ? run( *arguments ) : done;
   } catch ( const Mox::NameError& e ) {
      return complain( wrongUsage, e.what() );
   } catch ( const Mox::RangeError& e ) {
      return complain( wrongUsage, e.what() );
   } catch ( const Published::UnreadableDirectoryError& e ) {
      return complain( noTables, e.what() );
   } catch ( const Brane::CreateError& e ) {
      return complain( noTables, e.what() );
   }
}

}

}

int main( int argc, char** argv ) {
   return Programs::ending( "pimsm-show",
                            [&] { return Show::runCommand( argc, argv ); } );
}
