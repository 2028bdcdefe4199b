// Marks what other processes' programs link against; everything else is hidden.
#pragma once

#define PIMSM_API __attribute__( ( visibility( "default" ) ) )
