#include "apps/store/StoreOptions.h"

#include "apps/program/Ending.h"
#include "apps/store/Names.h"

namespace Fleet {

namespace {

CLI::Option* declareFile( CLI::App& app, const char* name, std::string& path,
                          const char* variable, const char* text ) {
   return app.add_option( name, path, text )
      ->type_name( "FILE" )
      ->check( CLI::ExistingFile )
      ->envname( variable );
}

}

CLI::Validator nameValidator() {
   return { []( const std::string& text ) -> std::string {
              return isName( text ) ? ""
                                    : "must be 1 to 32 letters, digits or hyphens";
           },
            "", "" };
}

CLI::Option* declareStore( CLI::App& app, StoreAddress& address,
                           const std::string& what ) {
   CLI::Option* const store =
      app.add_option( "--store", address.store,
                      what + ": sqlite:DIR, or nats://HOST[:PORT][,HOST...]" )
         ->type_name( "STORE" )
         ->check( Programs::filled )
         ->envname( "PIMSM_STORE" );
   app.add_option( "--fleet", address.fleet, "The fleet, in servers of NATS" )
      ->type_name( "NAME" )
      ->check( nameValidator() )
      ->envname( "PIMSM_FLEET" )
      ->capture_default_str();
   declareFile( app, "--ca", address.authority, "PIMSM_CA",
                "Who signed the servers' certificates; with it, TLS is used" );
   CLI::Option* certificate =
      declareFile( app, "--cert", address.certificate, "PIMSM_CERT",
                   "The certificate to show to the servers" );
   CLI::Option* key = declareFile( app, "--key", address.key, "PIMSM_KEY",
                                   "Its key, which nobody else may read" );
   certificate->needs( key );
   key->needs( certificate );
   declareFile( app, "--creds", address.credentials, "PIMSM_CREDS",
                "Credentials for the servers, which nobody else may read" );
   return store;
}

}
