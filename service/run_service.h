// The process from its start to its end.
#pragma once

/// Brings the service up, serves until a shutdown is requested, and takes it down again. The exit status: 0, or 1 when
/// another instance runs, the container runtime failed, or an error reached the master error list.
int runService();
