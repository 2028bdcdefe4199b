// Where a key stands in the index, or would.
#pragma once

#include "platform/shm/detail/Line.h"
#include "platform/shm/detail/Order.h"

namespace Brane::Detail {

// The place of the key of that hash, or the first free one; noPosition where there is
// neither. `holds( position, word )` says whether a word with the hash's tag is the
// key's.
template <class Holds>
PIMSM_SHM_HOT Place probeIn( const WriterView& view, uint64_t hash,
                             const Holds& holds ) {
   Position free = noPosition;
   uint32_t home = view.geometry.homeOf( hash );
   const uint32_t end = home + view.geometry.reach;
   const uint64_t tag = tagOf( hash );
   for ( uint32_t line = home; line < end; ++line ) {
      const uint64_t* words = view.index() + line * lineWords;
      for ( uint32_t found = wordsWith( words, tag ); found; ) {
         Position position = line * lineWords + takeFirst( found );
         uint64_t word = view.index()[position];
         if ( holds( position, word ) ) return { position, word };
      }
      if ( free == noPosition ) {
         uint32_t empty = wordsWith( words, 0 );
         if ( empty ) free = line * lineWords + takeFirst( empty );
      }
      if ( !words[7] && free != noPosition ) break;
   }
   return { free, 0 };
}

}
