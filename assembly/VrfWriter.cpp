#include "assembly/VrfWriter.h"

#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>

#include "published/Vrfs.h"

namespace Routing::Pim::SparseMode {
namespace {

// The path of the VRF's tables. Two models must not be written to the same tables,
// which the mount alone allows within a manager.
Mox::String unwrittenPath( const Corvex::EntityManager& manager,
                           Vantu::AddressFamily family, const L3::VrfName& vrf ) {
   Mox::String path = Brane::Status::mountPath( family, vrf );
   const Mox::Ptr<Mox::Entity> mounted = manager.entity( path );
   const auto* tables = dynamic_cast<const Brane::Status*>( mounted.get() );
   if ( tables != nullptr && tables->route().writer() != nullptr )
      throw ::Brane::SecondWriterError(
         path + " is written by this process already", getpid() );
   return path;
}

Mox::Ptr<Status> newModel( const L3::VrfName& vrf,
                           const VrfWriterOptions& options ) {
   Mox::Ptr<Status> model = statusFactory( vrf );
   model->maxRoutesIs( options.maxRoutes );
   model->maxRouteIntfsIs( options.maxRouteIntfs );
   return model;
}

}

// The reconciler before the writer: only the reconciler writes until the model is
// initialized.
VrfWriter::VrfWriter( Corvex::EntityManager& manager, Mox::Clock& clock,
                      Vantu::AddressFamily family, const L3::VrfName& vrf,
                      const VrfWriterOptions& options )
   : manager_( manager ),
     model_( newModel( vrf, options ) ),
     tables_( Brane::Status::mountInDependencyOrder(
        manager, unwrittenPath( manager, family, vrf ), ::Brane::tableWriter,
        model_ ) ),
     registers_( RegisterStatus::mount(
        manager, RegisterStatus::mountPath( family, vrf ), ::Brane::tableWriter,
        RegisterCapacities( *model_ ) ) ),
     advertised_( AdvertisedSgStatus::mount(
        manager, AdvertisedSgStatus::mountPath( family, vrf ), ::Brane::tableWriter,
        AdvertisedSgStatus::capacityFor( *model_ ) ) ),
     published_( Published::FamilyStatus::mount(
        manager, Published::FamilyStatus::mountPath( family, vrf ),
        ::Brane::tableWriter, options.maxRouteIntfs ) ),
     restart_( Brane::routeBraneRestartSmFactory( model_, tables_,
                                                  ::Brane::tableWriter, &clock ) ),
     writer_( Brane::routeBraneWriterSmFactory(
        model_, tables_,
        options.reviewClock != nullptr ? options.reviewClock : &clock ) ) {}

VrfWriter::~VrfWriter() = default;

bool VrfWriter::idle() const {
   return writer_->changeSet()->empty() && writer_->reviewChangeSet()->empty();
}

std::vector<const MoxBrane::MountedEntity*> VrfWriter::entities() const {
   return { tables_.get(), registers_.get(), advertised_.get(), published_.get() };
}

void VrfWriter::retire() {
   for ( const MoxBrane::MountedEntity* entity : entities() )
      manager_.removeTables( entity->name() );
}

void VrfWriter::removeTables( const Mox::String& root, Vantu::AddressFamily family,
                              const L3::VrfName& vrf ) {
   std::vector<std::string> directories;
   for ( const Mox::String& path :
         { Brane::Status::mountPath( family, vrf ),
           RegisterStatus::mountPath( family, vrf ),
           AdvertisedSgStatus::mountPath( family, vrf ),
           Published::FamilyStatus::mountPath( family, vrf ) } )
      directories.push_back( fmt::format( "{}/{}", root, path ) );
   if ( !std::filesystem::is_directory( directories.front() ) ) return;
   Published::removeTablesUnder(
      directories, directories.front() + '/' + Corvex::EntityManager::seatName );
}

}
