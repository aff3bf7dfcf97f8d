#pragma once

namespace common {

// Occupies those of the descriptors 0 to 2 that are closed, so that no file or device opened later
// is taken for a standard stream. Reading and writing there fails as before, and a program started
// by exec finds them closed. To be called before anything is opened.
void OccupyStandardDescriptors();

}  // namespace common
