#pragma once

class QCoreApplication;

// What the benchmark and reliability drivers ask of a running Tovren, through the environment.
// Nothing here does anything unless its variable is set.
//   TOVREN_REPORT_FIRST_PAGE=1  print "tovren: first page shown" on stdout once the first
//                               journal page is on screen, then quit.
//   TOVREN_REPORT_STALLS=1      watch the event loop and print "tovren: longest stall N ms" on
//                               stdout at exit.
namespace BenchProbe {

void install(QCoreApplication &application);
void firstPageShown();

} // namespace BenchProbe
