#include "apps/store/Store.h"

#include "apps/store/Names.h"
#include "apps/store/detail/NatsStore.h"
#include "apps/store/detail/SqliteStore.h"

namespace Fleet {

namespace {

constexpr std::string_view kSqlite = "sqlite:";

std::string directoryOf( const std::string& store ) {
   if ( !store.starts_with( kSqlite ) || store.size() == kSqlite.size() )
      throw Mox::ParseError( "No store: '" + store +
                             "'; expected sqlite:DIR or nats://HOST:PORT" );
   return store.substr( kSqlite.size() );
}

bool isNats( const StoreAddress& address ) {
   if ( !address.store.starts_with( "nats://" ) ) return false;
   if ( !isName( address.fleet ) )
      throw Mox::ParseError( "No name of a fleet: '" + address.fleet +
                             "'; expected 1 to 32 letters, digits or hyphens" );
   if ( address.certificate.empty() != address.key.empty() )
      throw Mox::ParseError( "A certificate and its key go together" );
   serversOf( address );
   return true;
}

}

std::unique_ptr<Writer> openWriter( const StoreAddress& address,
                                    const std::string& router,
                                    const std::string& instance,
                                    const Keeping& keeping ) {
   if ( isNats( address ) )
      return std::make_unique<NatsWriter>( address, router, instance, keeping );
   return std::make_unique<SqliteWriter>( directoryOf( address.store ), router,
                                          instance, keeping );
}

std::unique_ptr<Reader> openReader( const StoreAddress& address ) {
   if ( isNats( address ) ) return std::make_unique<NatsReader>( address );
   return std::make_unique<SqliteReader>( directoryOf( address.store ) );
}

}
