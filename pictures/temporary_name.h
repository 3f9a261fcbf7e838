#ifndef QEL_PICTURES_TEMPORARY_NAME_H_
#define QEL_PICTURES_TEMPORARY_NAME_H_

#include <string>

namespace qel::pictures {

/// A name for a temporary file, another one at every call. It says whose the file is: the running
/// system and its space of process numbers, the process, and when that was started.
/// Threads: any.
std::string TemporaryName();

/// Removes the temporary files in `folder` whose processes are gone. Files of other systems that
/// share the folder, of earlier boots and other containers are left alone, since nothing tells
/// whether they are in use, and so are those of other users, unless root asks. What cannot be read
/// or removed stays.
void RemoveStrays(const std::string& folder);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_TEMPORARY_NAME_H_
