// Logging of the target platform: one line an event.
//
// Levels: 0 and 1 debug, 2 info, 3 warning, 4 error, 6 notice that needs the operator.
// The configuration names the lowest level that is written; the comparison is numeric.
#pragma once

/// True when lines of `level` are written. Cheap; callable from any thread at any time.
bool KxCRTE_LOG_IsLevelEnabled(int level);

/// Writes one line built from a printf-style `format`.
///
/// A newline at the end of `format` ends the line and adds nothing. Every other control character in
/// the result, wherever it came from, is written escaped, so that a value never starts a line of its own.
/// A line below the configured level is dropped. Under back-pressure lines below level 3 may be dropped
/// (and are counted); lines of level 3 and above never are.
///
/// Callable from any thread, before main and after its end; not from a signal handler context.
void KxCRTE_LOG_Impl(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// Evaluates and formats its arguments only when lines of `level` are written.
#define KxCRTE_LOG(level, ...) \
    (KxCRTE_LOG_IsLevelEnabled(level) ? KxCRTE_LOG_Impl((level), __VA_ARGS__) : static_cast<void>(0))
