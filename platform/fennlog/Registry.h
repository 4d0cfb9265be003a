// The sites of the process: their numbers and texts.
//
// 1. Sites with the same text have the same number; numbers begin at 1 and are never reused.
// 2. Handles that lie in files are enrolled, and told of every site, so that the file can be read
//    without the process.
//
// Threading: any thread.

#pragma once

#include <string>

#include "platform/fennlog/Site.h"

namespace Fennlog {

class Handle;

namespace Registry {

/// Numbers a site at its first message and tells the enrolled handles; returns its number.
U32 numberOf(Site& site);

/// The text of a site with its placeholders; empty if there is no such number.
std::string textOf(U32 number);

/// Tells the handle of all sites so far, and of those to come until it resigns.
void handleIsEnrolled(Handle& handle);
void handleResigns(Handle& handle);

}  // namespace Registry
}  // namespace Fennlog
