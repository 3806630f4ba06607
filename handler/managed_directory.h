// The directories whose files users manage through the API.
#pragma once

#include <string>

#include "api/operations.h"
#include "handler/KxCContainerHandler.h"

/// What the list operation of one directory says.
struct KxCContainerHandler::KxSManagedDirectory {
    KxNCre::KxEOperation operation;
    const std::string& path;
    const char* answerKey;    ///< the key that holds the list; null when the list itself is the answer
    const char* listedFiles;  ///< in the line before
    const char* foundFiles;   ///< in the line behind
    const char* directory;    ///< in messages
    bool isUnreadableEmpty;   ///< whether a directory that cannot be opened lists as empty
};
