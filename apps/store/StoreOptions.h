// The options by which a program is told where its store is.
#pragma once

#include <CLI/CLI.hpp>

#include "apps/store/Store.h"

namespace Fleet {

// Adds --store, --fleet, --ca, --cert, --key and --creds; each may be given by the
// environment, too. Returns the first. The address outlives the parsing.
CLI::Option* declareStore( CLI::App& app, StoreAddress& address,
                           const std::string& what );

// A check for names of fleets and routers.
CLI::Validator nameValidator();

}
