// Static probes of the provider "pimsm": a no-op instruction each, which a tracer
// may replace; no code at all where the library is built without sys/sdt.h (Debian:
// systemtap-sdt-dev).
//
//    route_add( const RouteKey* )               a route was made
//    route_del( const RouteKey* )               a route left its VRF
//    review( uint64_t reviews, uint64_t slices )   the writer has finished a review:
//                                               its counts so far
//    reload( uint64_t routes )                  the tables' routes are in the model
//    reader_attach( const char* table, uint32_t capacity )   a reader found its table
//
// Arguments must cost nothing: they are computed whether or not somebody traces.
#pragma once

#if __has_include( <sys/sdt.h> )
#define SDT_USE_VARIADIC
#include <sys/sdt.h>
#define MOX_PROBE( name, ... ) STAP_PROBEV( pimsm, name, __VA_ARGS__ )
#else
#define MOX_PROBE( name, ... ) static_cast<void>( 0 )
#endif
