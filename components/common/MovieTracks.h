// Handing tracks to a movie.
//
// A movie takes over one reference to each track it is given and releases it when it is
// destroyed; a track starts with a count of 0. Importers build their new tracks and give
// them to their movie through addNewTrack(), which takes that reference for them.
#ifndef CMCOMPONENTS_MOVIETRACKS_H
#define CMCOMPONENTS_MOVIETRACKS_H

#include <cm/CMTrackInfo.h>

namespace cmcomponents {

inline void addNewTrack(ZR::CM::RMovieInfo& movie, ZR::CM::RTrackInfo* track) {
    track->retain();
    movie.addTrack(track);
}

}  // namespace cmcomponents

#endif
