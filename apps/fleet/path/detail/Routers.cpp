#include "apps/fleet/path/detail/Routers.h"

#include "platform/base/Error.h"

namespace Fleet {

Routers::Routers( Reader& reader, Scope scope, std::optional<RouteKey> stream,
                  bool all )
   : reader_( reader ),
     scope_( std::move( scope ) ),
     stream_( stream ),
     names_( reader.routers() ),
     problems_( names_.size() ),
     streams_( names_.size() ) {
   std::vector<std::string> keys = linkKeys();
   if ( all && stream_ ) {
      const auto more = streamKeys();
      keys.insert( keys.end(), more.begin(), more.end() );
   }
   reader_.foresee( names_, keys );
   std::vector<RouterFacts> routers;
   for ( uint32_t i = 0; i < names_.size(); ++i ) {
      const Values values = read( i, keys );
      routers.push_back( links( i, values ) );
      if ( all && stream_ ) streams_[i] = streams( i, values );
   }
   fabric_.emplace( std::move( routers ) );
}

std::string Routers::key( Key::Kind kind, const RouteKey& of ) const {
   Key key{ kind, scope_, of, 0 };
   if ( kind == Key::rates ) {
      key.page = pageOf( of );
      key.stream = {};
   }
   if ( kind == Key::recorder ) key.scope = {};
   return keyText( key );
}

RouteKey Routers::wildcard() const {
   return { IpGenAddr::unspecified( scope_.family ), stream_->group };
}

std::vector<std::string> Routers::linkKeys() const {
   return { key( Key::recorder ), key( Key::table ), key( Key::links ),
            key( Key::rps ) };
}

std::vector<std::string> Routers::streamKeys() const {
   std::vector<std::string> keys{ key( Key::route, wildcard() ),
                                  key( Key::rates, *stream_ ) };
   if ( stream_->source.isUnspecified() ) return keys;
   keys.push_back( key( Key::route, *stream_ ) );
   keys.push_back( key( Key::registers, *stream_ ) );
   return keys;
}

Routers::Values Routers::read( uint32_t router,
                               const std::vector<std::string>& keys ) {
   problems_[router].clear();
   const auto report = [&]( const Mox::Error& error, bool format ) {
      problems_[router]["store"] = { names_[router], error.what(), format };
   };
   try {
      return reader_.values( names_[router], keys );
   } catch ( const StoreFormat& error ) {
      report( error, true );
   } catch ( const Mox::Error& error ) {
      report( error, false );
   }
   return {};
}

template <class Parse>
auto Routers::parse( uint32_t router, const Values& values, const std::string& key,
                     const Parse& parse )
   -> std::optional<decltype( parse( "" ) )> {
   const auto found = values.find( key );
   if ( found == values.end() ) return std::nullopt;
   try {
      return parse( found->second );
   } catch ( const Mox::ParseError& error ) {
      problems_[router][key] = { names_[router], key + ": " + error.what(), false };
      return std::nullopt;
   }
}

RouterFacts Routers::links( uint32_t router, const Values& values ) {
   RouterFacts facts;
   facts.name = names_[router];
   facts.lives = reader_.lives( names_[router] );
   facts.recorder = parse( router, values, key( Key::recorder ), recorderFacts );
   if ( facts.recorder && facts.recorder->format > storeFormat ) {
      problems_[router]["store"] = { names_[router],
                                     "its recorder writes a newer format", true };
      facts.recorder.reset();
      return facts;
   }
   // What another run of the recorder wrote is being compared.
   if ( facts.lives && facts.recorder &&
        facts.recorder->instance != reader_.instance( names_[router] ) )
      facts.recorder->complete = false;
   facts.table = parse( router, values, key( Key::table ), tableFacts );
   facts.links =
      parse( router, values, key( Key::links ), linkFacts ).value_or( Links() );
   facts.rps = parse( router, values, key( Key::rps ), rpFacts )
                  .value_or( std::vector<RpRange>() );
   return facts;
}

Stream Routers::streams( uint32_t router, const Values& values ) {
   const auto route = [&]( const RouteKey& of ) {
      return parse(
         router, values, key( Key::route, of ),
         [&]( std::string_view value ) { return routeFacts( value, of ); } );
   };
   Stream stream;
   stream.wc = route( wildcard() );
   if ( !stream_->source.isUnspecified() ) {
      stream.sg = route( *stream_ );
      stream.registering =
         parse( router, values, key( Key::registers, *stream_ ), registerFacts );
   }
   const auto rates =
      parse( router, values, key( Key::rates, *stream_ ), rateFacts );
   if ( !rates ) return stream;
   stream.at = rates->at;
   for ( const Rate& each : rates->streams )
      if ( each.stream == *stream_ ) stream.rate = each;
   return stream;
}

const Stream& Routers::stream( uint32_t router ) {
   auto& found = streams_[router];
   if ( !found ) {
      auto before = std::move( problems_[router] );
      found = streams( router, read( router, streamKeys() ) );
      problems_[router].merge( before );
   }
   return *found;
}

void Routers::again( const std::set<uint32_t>& routers ) {
   std::vector<RouterFacts> facts = fabric_->routers();
   for ( const uint32_t router : routers ) {
      streams_[router].reset();
      facts[router] = links( router, read( router, linkKeys() ) );
   }
   fabric_.emplace( std::move( facts ) );
}

std::vector<Problem> Routers::problems() const {
   std::vector<Problem> all;
   for ( const auto& ofRouter : problems_ )
      for ( const auto& [key, problem] : ofRouter ) all.push_back( problem );
   return all;
}

}
