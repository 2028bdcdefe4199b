#include "apps/mirror/Mirrors.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>

#include "published/Vrfs.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;

std::string familyName( Vantu::AddressFamily family ) {
   return Vantu::valueToStrep( family );
}

Mirror::Mirror( Corvex::EntityManager& manager, Mox::Clock& clock,
                Vantu::AddressFamily mirrorFamily, const L3::VrfName& vrfName,
                Depth depth )
   : family( mirrorFamily ),
     name( vrfName ),
     registers( Sm::RegisterStatus::mount(
        manager, Sm::RegisterStatus::mountPath( family, name ),
        Brane::tableReader ) ),
     advertised( Sm::AdvertisedSgStatus::mount(
        manager, Sm::AdvertisedSgStatus::mountPath( family, name ),
        Brane::tableReader ) ),
     mfib( Published::MfibStatus::mount(
        manager, Published::MfibStatus::mountPath( family, name ),
        Brane::tableReader ) ) {
   if ( depth == models ) {
      routes.emplace( manager, clock, family, name );
      model = routes->model();
   }
   // Mounted already by `routes`.
   tables = Sm::Brane::Status::mountInDependencyOrder(
      manager, Sm::Brane::Status::mountPath( family, name ), Brane::tableReader,
      nullptr );
   agent = Published::FamilyStatus::mount(
      manager, Published::FamilyStatus::mountPath( family, name ),
      Brane::tableReader );
}

Mirror::Problem Mirror::problem( const MoxBrane::TableBase& table ) {
   const MoxBrane::CollectionControl* control = table.control();
   if ( control->mountStatus() == MoxBrane::mountReady ) return {};
   if ( control->mountStatus() == MoxBrane::mountWaiting ||
        control->mountStatus() == MoxBrane::mountRemoved ) {
      return { Problem::missing,
               control->entity()->name() + "/" + control->name() + " is missing" };
   }
   struct stat status;
   if ( stat( table.reader()->path().c_str(), &status ) == 0 &&
        !S_ISREG( status.st_mode ) )
      return { Problem::noFile, control->problem() };
   using Brane::LayoutError;
   LayoutError::Mismatch mismatch = table.reader()->mismatch();
   bool otherLayout = control->mountStatus() == MoxBrane::mountMismatch ||
                      mismatch == LayoutError::formatVersion ||
                      mismatch == LayoutError::byteOrder;
   return { otherLayout ? Problem::otherLayout : Problem::damaged,
            control->problem() };
}

// The counters' table may be missing: counting is optional.
Mirror::Problem Mirror::problem() const {
   Problem found = problem( tables->route() );
   return found.kind != Problem::none ? found : problem( tables->routeIntf() );
}

Mirror::Problem Mirror::problem( const MoxBrane::MountedEntity& entity ) {
   for ( const MoxBrane::TableBase* table : entity.tables() ) {
      Problem found = problem( *table );
      if ( found.kind != Problem::none ) return found;
   }
   return {};
}

bool Mirror::gone() const {
   return access( tables->route().reader()->path().c_str(), F_OK ) != 0;
}

// A bell is rung by writing to it; 0 if the clocks were set back.
std::optional<double> Mirror::sinceLastWrite() const {
   struct stat status;
   if ( stat( tables->route().reader()->bell().c_str(), &status ) != 0 )
      return std::nullopt;
   timespec now;
   clock_gettime( CLOCK_REALTIME, &now );
   const timespec& latest = status.st_mtim;
   return std::max( 0.0,
                    static_cast<double>( now.tv_sec - latest.tv_sec ) +
                       static_cast<double>( now.tv_nsec - latest.tv_nsec ) * 1e-9 );
}

std::optional<std::string> Mirror::mfibSetting( const char* setting ) const {
   // An older process that came after leaves the table as it was.
   if ( mfib->cache().writerAlive() != mfib->setting().writerAlive() )
      return std::nullopt;
   Published::Setting found;
   if ( mfib->setting().find( Published::Text<32>( setting ), found ) !=
        Brane::lookupFound )
      return std::nullopt;
   return found.value.text();
}

const char* Mirror::writerText() const {
   return writerAlive() ? "running" : "gone";
}

const char* Mirror::writerStory() const {
   if ( writerAlive() ) return writerText();
   timespec up;
   clock_gettime( CLOCK_BOOTTIME, &up );
   const bool before =
      sinceLastWrite().value_or( 0.0 ) > static_cast<double>( up.tv_sec );
   return before ? "gone since before the last boot" : writerText();
}

uint64_t unreadable( const MoxBrane::MountedEntity& entity ) {
   uint64_t count = 0;
   for ( const MoxBrane::TableBase* table : entity.tables() )
      count += table->reader()->counters().damaged + table->undecodable();
   return count;
}

uint64_t Mirror::unreadable() const {
   return Show::unreadable( *tables ) + Show::unreadable( *registers ) +
          Show::unreadable( *advertised ) + Show::unreadable( *agent ) +
          Show::unreadable( *mfib );
}

namespace {

// Makes the loop turn from time to time.
class Glances : public Mox::Clock::Notifiee {
 public:
   explicit Glances( Mox::Clock& clock ) : Notifiee( &clock ) { wakeUp(); }

 private:
   static constexpr double kInterval = 0.02;  // s
   void onTime() override { wakeUp(); }
   void wakeUp() { wakeupTimeIs( clock()->now() + kInterval ); }
};

Mirror::Problem problemOf( const Mirror& mirror, Mirrors::Part part ) {
   if ( part == Mirrors::registersPart )
      return Mirror::problem( *mirror.registers );
   if ( part == Mirrors::advertisedPart )
      return Mirror::problem( *mirror.advertised );
   return mirror.problem();
}

}

// In order of VRF name, IPv4 first.
Mirrors::Found Mirrors::find( const Selection& selection ) {
   using Vantu::AddressFamily;
   Found found;
   for ( AddressFamily family : { AddressFamily::ipv4, AddressFamily::ipv6 } ) {
      if ( selection.family && selection.family != family ) continue;
      for ( const L3::VrfName& name :
            Published::vrfsUnder( selection.root, family ) ) {
         if ( selection.vrf == "all" || selection.vrf == name.name() )
            found.emplace_back( name, family );
      }
   }
   std::sort( found.begin(), found.end(), []( const auto& a, const auto& b ) {
      return std::pair( a.first.name(), a.second ) <
             std::pair( b.first.name(), b.second );
   } );
   return found;
}

// Unreadable directories are reported first, before anything is mounted.
Mirrors::Mirrors( const Selection& selection, Mirror::Depth depth )
   : selection_( selection ),
     depth_( depth ),
     clock_( loop_ ),
     manager_( clock_, &loop_, selection.root, depth != Mirror::tablesOnly ),
     patientUntil_( clock_.now() + patience ) {
   Found found = find( selection );
   process_ = Published::ProcessStatus::mount( manager_, Brane::tableReader );
   mfib_ = Published::ProcessStatus::mountAt( manager_, Brane::tableReader,
                                              Published::ProcessStatus::mfibPath );
   if ( depth == Mirror::tablesOnly )
      left_.assign( found.rbegin(), found.rend() );
   else
      mount( found );
}

bool Mirrors::next() {
   mirrors_.clear();
   if ( left_.empty() ) return false;
   mount( { left_.back() } );
   left_.pop_back();
   return true;
}

void Mirrors::mount( const Found& found ) {
   const auto order = []( const auto& mirror ) {
      return std::pair( mirror->vrf(), mirror->family );
   };
   for ( const auto& [name, family] : found ) {
      const std::pair wanted( name.name(), family );
      const auto at =
         std::lower_bound( mirrors_.begin(), mirrors_.end(), wanted,
                           [&]( const auto& mirror, const auto& than ) {
                              return order( mirror ) < than;
                           } );
      if ( at == mirrors_.end() || order( *at ) != wanted )
         mirrors_.insert( at, std::make_unique<Mirror>( manager_, clock_, family,
                                                        name, depth_ ) );
   }
}

void Mirrors::rescan() {
   try {
      mount( find( selection_ ) );
   } catch ( const std::exception& ) {
      // For instance while directories are being made: the next look may be
      // permitted.
   }
}

void Mirrors::followVrfs() {
   std::erase_if( mirrors_, []( const auto& each ) { return each->removed(); } );
   rescan();
}

void Mirrors::drop( const Mirror& mirror ) {
   std::erase_if( mirrors_,
                  [&]( const auto& each ) { return each.get() == &mirror; } );
}

std::vector<Mirrors::Unread> Mirrors::load( Part part ) {
   using Problem = Mirror::Problem;
   auto waits = [&]( const auto& mirror ) {
      const Problem::Kind kind = problemOf( *mirror, part ).kind;
      if ( kind == Problem::none ) return part == routesPart && !mirror->loaded();
      return kind == Problem::missing && mirror->writerAlive() && !mirror->gone() &&
             now() < patientUntil_;
   };
   auto anyWaits = [&] {
      return std::any_of( mirrors_.begin(), mirrors_.end(), waits );
   };
   Glances glances( clock_ );
   Mox::Loop::TurnEnd check( loop_, [&] {
      if ( !anyWaits() ) loop_.stop();
   } );
   if ( anyWaits() ) loop_.run();
   std::vector<Unread> unread;
   for ( auto& mirror : mirrors_ ) {
      Problem problem = problemOf( *mirror, part );
      if ( problem.kind == Problem::none ) continue;
      if ( problem.kind == Problem::missing && mirror->gone() ) {
         mirror.reset();
      } else {
         unread.push_back( { std::move( mirror ), std::move( problem ) } );
      }
   }
   std::erase( mirrors_, nullptr );
   return unread;
}

}
