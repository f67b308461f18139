// The flag that turns maintenance into a report.
#pragma once

// While it is set audits and the cleanup ask nothing and change nothing: they only tell what they
// would do. Therefore they need no repository lock then. Nothing else looks at it, and least of all
// the executors of a change, which never run without the lock. A program sets it once, before it
// calls them; it is false at the start.
extern bool dry_run;
