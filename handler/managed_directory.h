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
    const char* listedFiles;  ///< in the log line at its beginning
    const char* foundFiles;   ///< in the log line at its end, behind their number
    const char* directory;    ///< in the messages of failures
    bool isUnreadableEmpty;   ///< whether a directory that cannot be opened lists as empty
};
