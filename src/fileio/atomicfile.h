// A whole-file write that replaces its destination only once every byte is on
// disk: the bytes go to a temporary file beside the destination, which is
// flushed and renamed over it by Commit(). Until then, and on any failure, the
// destination keeps its old contents; the temporary file never outlives the
// object.
#pragma once

#include <string>

#include "fileio/fileio.h"
#include "fileio/filepath.h"

class AtomicFile : public Fileio {
public:
    AtomicFile() = default;
    ~AtomicFile() override;

    // Opens the temporary file for writing. A destination that is a symbolic
    // link is followed: its target is replaced and the link stays. A new file
    // gets the permissions an ordinary create gives; an existing one keeps its
    // own. A destination that exists but is no regular file (a device) is
    // written directly. False with lastError set when nothing can be written.
    bool Create(const Filepath& destination);
    // Flushes the bytes to disk and puts them in place of the destination.
    bool Commit();
    // Closes and removes the temporary file; the destination stays as it was.
    void Discard();

private:
    std::string target;  // the file that is replaced (links resolved)
    std::string temp;    // empty when writing the destination itself
    bool direct = false;
};
