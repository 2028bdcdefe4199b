// Peers of a recorder: its values put by the libraries alone, in the same steps.
#pragma once

#include <nats/nats.h>
#include <sqlite3.h>

#include <map>
#include <stdexcept>
#include <string>

namespace Bare {

using Values = std::map<std::string, std::string>;

constexpr size_t kStep = 500;  // values of a transaction

inline void check( bool good, const char* what ) {
   if ( !good ) throw std::runtime_error( what );
}

inline void insert( const std::string& file, const Values& values ) {
   sqlite3* database = nullptr;
   check( sqlite3_open( file.c_str(), &database ) == SQLITE_OK, "open" );
   const auto run = [&]( const char* sql ) {
      check( sqlite3_exec( database, sql, nullptr, nullptr, nullptr ) == SQLITE_OK,
             sql );
   };
   run(
      "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
      "CREATE TABLE state(key TEXT PRIMARY KEY, value TEXT, digest INTEGER)"
      " WITHOUT ROWID" );
   sqlite3_stmt* put = nullptr;
   sqlite3_prepare_v2( database, "INSERT OR REPLACE INTO state VALUES(?,?,0)", -1,
                       &put, nullptr );
   size_t count = 0;
   for ( const auto& [key, value] : values ) {
      if ( count % kStep == 0 ) run( count == 0 ? "BEGIN" : "COMMIT; BEGIN" );
      ++count;
      sqlite3_bind_text( put, 1, key.data(), static_cast<int>( key.size() ),
                         SQLITE_STATIC );
      sqlite3_bind_text( put, 2, value.data(), static_cast<int>( value.size() ),
                         SQLITE_STATIC );
      check( sqlite3_step( put ) == SQLITE_DONE, "insert" );
      sqlite3_reset( put );
   }
   run( "COMMIT" );
   sqlite3_finalize( put );
   sqlite3_close( database );
}

inline void publish( const std::string& url, const Values& values ) {
   natsConnection* connection = nullptr;
   jsCtx* streams = nullptr;
   check( natsConnection_ConnectTo( &connection, url.c_str() ) == NATS_OK &&
             natsConnection_JetStream( &streams, connection, nullptr ) == NATS_OK,
          "connect" );
   jsStreamConfig config;
   jsStreamConfig_Init( &config );
   const char* subjects[] = { "bare.>" };
   config.Name = "bare";
   config.Subjects = subjects;
   config.SubjectsLen = 1;
   config.MaxMsgsPerSubject = 1;
   check( js_AddStream( nullptr, streams, &config, nullptr, nullptr ) == NATS_OK,
          "a stream" );
   for ( const auto& [key, value] : values )
      check(
         js_PublishAsync( streams, ( "bare." + key ).c_str(), value.data(),
                          static_cast<int>( value.size() ), nullptr ) == NATS_OK,
         "publish" );
   check( js_PublishAsyncComplete( streams, nullptr ) == NATS_OK, "complete" );
   jsCtx_Destroy( streams );
   natsConnection_Destroy( connection );
}

}
