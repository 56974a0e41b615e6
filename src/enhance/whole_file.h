#pragma once

#include <functional>
#include <ostream>
#include <string>

namespace sonivo {

/// Writes a file that appears under its name whole or not at all, whatever happens to the process or the disk: what
/// `write` puts into the stream lies without a name in the same folder, on the disk, before it gets the name. Where the
/// file system knows no files without a name, it lies under "<name>.part" until then. False, with the reason in
/// errno, for a file that can't be made or written whole; what `write` throws passes through.
bool write_whole_file(const std::string& name, const std::function<void(std::ostream&)>& write);

}  // namespace sonivo
