// Which track of its source each output queue of an importer carries: queue i carries
// track i, or the i-th track a "tracks" setting names ("2,1": queue 1 gets track 2, queue
// 2 track 1). Shared by the importers that take the setting; plain functions, any thread.
#ifndef CM_COMPONENTS_COMMON_TRACKCHOICE_H
#define CM_COMPONENTS_COMMON_TRACKCHOICE_H

#include <cstddef>
#include <string>
#include <vector>

namespace cmcomponents {

// Whether text is a "tracks" setting: track numbers from 1, separated by commas.
bool isTrackList(const std::string& text);

// The track index (from 0) of each of `queues` queues, -1 for a queue without a track, for
// a source of `tracks` tracks and a "tracks" setting (empty: in the source's order).
// kResultOK, or kResultSettingParseFailed with why (starting with `who`) when the setting
// is no list, or names a track that is not there or one twice.
int chooseTracks(const std::string& setting, std::size_t tracks, std::size_t queues,
                 const std::string& who, std::vector<int>& trackOfQueue, std::string& why);

}  // namespace cmcomponents

#endif
