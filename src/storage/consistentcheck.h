// The work directory of the package consistency check: <data directory>\consistentcheck.
#pragma once

namespace dorvo {

// Empties the directory. 1 when nothing is left in it; 0 when there is none or something stayed.
int consistentcheckfreeall();

}  // namespace dorvo
