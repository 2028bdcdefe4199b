#include "apps/store/Store.h"

#include "apps/store/detail/SqliteStore.h"

namespace Fleet {

namespace {

constexpr std::string_view kSqlite = "sqlite:";

std::string directoryOf( const std::string& store ) {
   if ( !store.starts_with( kSqlite ) || store.size() == kSqlite.size() )
      throw Mox::ParseError( "No store: '" + store + "'; expected sqlite:DIR" );
   return store.substr( kSqlite.size() );
}

}

std::unique_ptr<Writer> openWriter( const StoreAddress& address,
                                    const std::string& router,
                                    const std::string& instance,
                                    const Keeping& keeping ) {
   return std::make_unique<SqliteWriter>( directoryOf( address.store ), router,
                                          instance, keeping );
}

std::unique_ptr<Reader> openReader( const StoreAddress& address ) {
   return std::make_unique<SqliteReader>( directoryOf( address.store ) );
}

}
