#pragma once

#include "numdict/import/ImportReport.h"

#include <string>

namespace kavix::numdict {

/// The report for people: tables and plain words.
std::string formatReport(const ImportReport& report);

/// The report for programs: one JSON object.
std::string formatReportAsJSON(const ImportReport& report);

}
