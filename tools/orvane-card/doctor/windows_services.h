// The operating system's services and the session, as "doctor" asks for them.
#ifndef ORVANE_TOOL_DOCTOR_WINDOWS_SERVICES_H
#define ORVANE_TOOL_DOCTOR_WINDOWS_SERVICES_H

#include <string>

#include "doctor/checks.h"

namespace orvane::tool {

// serviceState asks for the service with that short name, "SCardSvr". It needs no rights of an administrator.
ServiceState serviceState(const std::wstring& name);

// isRemoteSession says whether this program runs in a remote-desktop session.
bool isRemoteSession();

}  // namespace orvane::tool

#endif
