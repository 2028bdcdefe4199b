#include "apps/show/Mirrors.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <tuple>

#include "apps/published/Vrfs.h"
#include "platform/shm/TableFiles.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;

Mirror::Mirror( Corvex::EntityManager& manager, Mox::Clock& clock,
                Vantu::AddressFamily mirrorFamily, const L3::VrfName& name )
   : family( mirrorFamily ),
     model( Sm::statusFactory( name ) ),
     tables( Sm::Brane::Status::mountInDependencyOrder(
        manager, Sm::Brane::Status::mountPath( family, name ), Brane::tableReader,
        nullptr ) ),
     reader( Sm::Brane::routeBraneReaderSmFactory( model, tables ) ),
     restart( Sm::Brane::routeBraneRestartSmFactory( model, tables,
                                                     Brane::tableReader, &clock ) ),
     registers( Sm::RegisterStatus::mount(
        manager, Sm::RegisterStatus::mountPath( family, name ),
        Brane::tableReader ) ),
     advertised( Sm::AdvertisedSgStatus::mount(
        manager, Sm::AdvertisedSgStatus::mountPath( family, name ),
        Brane::tableReader ) ),
     agent( Published::FamilyStatus::mount(
        manager, Published::FamilyStatus::mountPath( family, name ),
        Brane::tableReader ) ),
     pim( std::make_unique<Published::PimMirror>( model, agent ) ),
     mfib( Published::MfibStatus::mount(
        manager, Published::MfibStatus::mountPath( family, name ),
        Brane::tableReader ) ) {}

namespace {

Mirror::Problem problemOf( const MoxBrane::MountedEntity& entity,
                           const MoxBrane::TableBase& table ) {
   using Problem = Mirror::Problem;
   const MoxBrane::CollectionControl* control = table.control();
   if ( control->mountStatus() == MoxBrane::mountReady ) return {};
   if ( control->mountStatus() == MoxBrane::mountWaiting ||
        control->mountStatus() == MoxBrane::mountRemoved ) {
      return { Problem::missing,
               entity.name() + "/" + control->name() + " is missing" };
   }
   using Brane::LayoutError;
   LayoutError::Mismatch mismatch = table.reader()->mismatch();
   bool otherLayout = control->mountStatus() == MoxBrane::mountMismatch ||
                      mismatch == LayoutError::formatVersion ||
                      mismatch == LayoutError::byteOrder;
   return { otherLayout ? Problem::otherLayout : Problem::damaged,
            control->problem() };
}

}

// The counters' table may be missing: nobody need count.
Mirror::Problem Mirror::problem() const {
   Problem problem = problemOf( *tables, tables->route() );
   return problem.kind != Problem::none ? problem
                                        : problemOf( *tables, tables->routeIntf() );
}

Mirror::Problem Mirror::problem( const MoxBrane::MountedEntity& entity ) {
   for ( const MoxBrane::TableBase* table : entity.tables() ) {
      Problem problem = problemOf( entity, *table );
      if ( problem.kind != Problem::none ) return problem;
   }
   return {};
}

// A bell is rung by writing to it; clocks that were set say 0.
std::optional<double> Mirror::sinceLastWrite() const {
   timespec latest{};
   for ( const MoxBrane::TableBase* table :
         std::initializer_list<const MoxBrane::TableBase*>{
            &tables->route(), &tables->routeIntf() } ) {
      struct stat status;
      const Brane::TableFiles files( table->reader()->path() );
      if ( stat( files.bell.c_str(), &status ) != 0 ) continue;
      if ( std::tie( status.st_mtim.tv_sec, status.st_mtim.tv_nsec ) >
           std::tie( latest.tv_sec, latest.tv_nsec ) )
         latest = status.st_mtim;
   }
   if ( latest.tv_sec == 0 ) return std::nullopt;
   timespec now;
   clock_gettime( CLOCK_REALTIME, &now );
   return std::max( 0.0,
                    static_cast<double>( now.tv_sec - latest.tv_sec ) +
                       static_cast<double>( now.tv_nsec - latest.tv_nsec ) * 1e-9 );
}

uint64_t Mirror::unreadable() const {
   uint64_t count = 0;
   for ( const MoxBrane::MountedEntity* entity :
         std::initializer_list<const MoxBrane::MountedEntity*>{
            tables.get(), registers.get(), advertised.get() } ) {
      for ( const MoxBrane::TableBase* table : entity->tables() ) {
         const auto& counters = table->reader()->counters();
         count += counters.busy + counters.damaged + table->undecodable();
      }
   }
   return count;
}

Mirrors::Mirrors( const Selection& selection )
   : clock_( loop_ ),
     manager_( clock_, &loop_, selection.root ),
     process_( Published::ProcessStatus::mount( manager_, Brane::tableReader ) ) {
   using Vantu::AddressFamily;
   for ( AddressFamily family : { AddressFamily::ipv4, AddressFamily::ipv6 } ) {
      if ( !selection.family || selection.family == family ) {
         mountFamily( selection, family );
      }
   }
   std::stable_sort(
      mirrors_.begin(), mirrors_.end(),
      []( const auto& a, const auto& b ) { return a->vrf() < b->vrf(); } );
}

void Mirrors::mountFamily( const Selection& selection,
                           Vantu::AddressFamily family ) {
   for ( const L3::VrfName& name :
         Published::vrfsUnder( selection.root, family ) ) {
      if ( selection.vrf != "all" && selection.vrf != name.name() ) continue;
      mirrors_.push_back(
         std::make_unique<Mirror>( manager_, clock_, family, name ) );
   }
}

void Mirrors::load() {
   auto allLoaded = [this] {
      return std::all_of( mirrors_.begin(), mirrors_.end(),
                          []( const auto& mirror ) { return mirror->loaded(); } );
   };
   Mox::Loop::TurnEnd check( loop_, [&] {
      if ( allLoaded() ) loop_.stop();
   } );
   if ( !allLoaded() ) loop_.run();
}

}
