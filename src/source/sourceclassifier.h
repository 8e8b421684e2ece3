// Groups a job's sources by the volume that holds them.
//
// The map is filled anew: one JobVolume for each mount point, numbered from 1 in the order in which
// they are met, with its sources in their given order. A source whose volume cannot be found is
// logged and left out.
#pragma once

#include <string>
#include <vector>

#include "source/jobvolume.h"

namespace dorvo {

class SourceClassifier {
public:
    void operator()(const std::vector<std::wstring>& sources, VolumeMap& volumes) const;
};

}  // namespace dorvo
