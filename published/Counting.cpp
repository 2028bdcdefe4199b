#include "published/Counting.h"

namespace Published {

namespace Sm = Routing::Pim::SparseMode;
using Routing::Pim::RouteKey;

Counting::Counting( Mox::Ptr<Sm::Status> model )
   : model_( std::move( model ) ),
     groupSources_( Mox::newEntity<Sm::GroupSourceMap>() ),
     sourceCount_( Sm::sourceCountFactory( model_->vrfName().name() ) ),
     groupCount_( Sm::groupCountFactory( model_->vrfName().name() ) ),
     counter_(
        Sm::sgCountSmFactory( model_, sourceCount_, groupSources_, groupCount_ ) ) {
   for ( const Sm::Route& route : std::as_const( *model_ ).route() )
      add( route.key() );
   notifierIs( model_.get() );
}

void Counting::onRoute( const RouteKey& key ) {
   if ( model_->route( key ) != nullptr ) return add( key );
   removeSource( key );
   removeGroup( key );
}

void Counting::add( const RouteKey& key ) {
   model_->sourceIs( key.source )->sourceGroupIs( key.group, true );
   Mox::Ptr<Sm::Group> group = groupSources_->groupIs( key.group );
   if ( !key.source.isUnspecified() ) {
      group->groupSourceIs( key.source, true );
   } else if ( group->groupSource().empty() ) {
      groupCount_->groupIs( 0, key.group );
   }
}

namespace {

bool emptied( const Sm::IpAddrCollection* entry ) {
   return entry != nullptr && !*entry;
}

}

// A reader may have removed it already.
void Counting::removeSource( const RouteKey& key ) {
   Mox::Ptr<Sm::Source> source = model_->source( key.source );
   if ( source != nullptr ) {
      source->sourceGroupDel( key.group );
      if ( !source->sourceGroup().empty() ) return;
      model_->sourceDel( key.source );
   }
   if ( sourceCount_->sourcesByGroupCount( 0 ) == nullptr ) return;
   sourceCount_->sourceDel( 0, key.source );
   if ( emptied( sourceCount_->sourcesByGroupCount( 0 ) ) )
      sourceCount_->sourcesByGroupCountDel( 0 );
}

void Counting::removeGroup( const RouteKey& key ) {
   Mox::Ptr<Sm::Group> group = groupSources_->group( key.group );
   if ( group == nullptr ) return;
   group->groupSourceDel( key.source );
   RouteKey shared{ Vantu::IpGenAddr::unspecified( key.group.family() ),
                    key.group };
   if ( !group->groupSource().empty() || model_->route( shared ) != nullptr )
      return;
   groupSources_->groupDel( key.group );
   groupCount_->groupDel( 0, key.group );
   if ( emptied( groupCount_->groupsBySourceCount( 0 ) ) )
      groupCount_->groupsBySourceCountDel( 0 );
}

}
