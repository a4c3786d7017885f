#pragma once

// Every text that crosses a process boundary: notifications, preferences, files, processes, the ingest protocol. Other
// programs rely on them to the letter.
namespace names {

// Distributed notifications, and the key of their user info.
inline constexpr char exceptionDelivered[] = "exceptionDeliveryCompleteion";
inline constexpr char terminatedNormally[] = "appTerminatedNormally";
inline constexpr char logoutContinued[] = "com.apple.logoutContinued";
inline constexpr char processIdKey[] = "pid";

// Preferences of the crash reporter.
inline constexpr char preferencesDomain[] = "com.malvex.crashreporter";
inline constexpr char alwaysNeverSend[] = "always_never_send";
inline constexpr char guidKeyPrefix[] = "guid_";
inline constexpr char lastCrashKeyPrefix[] = "lastCrash_";

// Processes that write or show crash reports.
inline constexpr char problemReporter[] = "Problem Reporter";
inline constexpr char userNotificationCenter[] = "UserNotificationCenter";

// The analytics system: where it registers its crash processor, and that program below the place registered.
inline constexpr char analyticsDomain[] = "com.malvex.glimmerxt";
inline constexpr char crashProcessorKey[] = "CRProcessor";
inline constexpr char crashProcessor[] = "/GLCrashProcessor.app/Contents/MacOS/GLCrashProcessor";

// Folders below a Library, and files in them.
inline constexpr char diagnosticReports[] = "Logs/DiagnosticReports";
inline constexpr char diagnosticReportsForNewHardware[] = "Logs/DiagnosticReportsForNewHardware";
inline constexpr char malvexLogs[] = "Logs/Malvex";
inline constexpr char crashPadDumps[] = "CrashPadDumps";  // below those
inline constexpr char crashModuleFile[] = "CrashModule.txt";
inline constexpr char debugLogs[] = "/Logs/Malvex/CrDebugLogs/";
inline constexpr char markerFile[] = "generatecrlogornot.txt";

// The event queue and the ingest service.
inline constexpr char reportsFolder[] = "~/Library/Logs/CrashReporter/Ingest";
inline constexpr char eventFilePrefix[] = "crMacLog";
inline constexpr char eventFileSuffix[] = "log";
inline constexpr char lockFileExtension[] = "lck";
inline constexpr char ingestProject[] = "evtsk-dsk-channel";
inline constexpr char ingestUrlVariable[] = "CRDAEMON_INGEST_URL";

// The session record.
inline constexpr char sessionPrefix[] = "SkylanceSessionId:  ";

// "Nothing", of report names and window numbers.
inline constexpr char nothing[] = "-1";

}  // namespace names
