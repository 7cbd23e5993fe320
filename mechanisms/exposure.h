// Files that hold secrets, and who else can open them.
#ifndef MECHANISMS_EXPOSURE_H
#define MECHANISMS_EXPOSURE_H

#include <sys/stat.h>

// What a file's mode gives away, for a message behind the file's name; null when that is nothing, or there is no file.
// Its group may read it.
inline const char *exposure(const char *file) {
    struct stat found {};
    if (file == nullptr || stat(file, &found) != 0)
        return nullptr;
    if ((found.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        return " can be written by others than its owner; its mode should be 0600";
    return (found.st_mode & S_IROTH) != 0 ? " can be read by everybody; its mode should be 0600" : nullptr;
}

#endif
