#include "apps/tvkctl/eventlog_query.h"

#include <gtest/gtest.h>

#include <sstream>

namespace tvkctl {
namespace {

TEST(EventLogQuery, SaysWhatSettingsComeToOrWhyTheyDoNot) {
  struct Row {
    EventLogOptions options;
    int result;
    std::string said;  ///< Of the output, or of the errors.
  };
  for (const Row& row : {
           Row{{.channels = "0001", .ids = "1,5-9,-7", .levels = "00000000", .window = "1s"},
               0,
               "(EventID=1 or (EventID &gt;= 5 and EventID &lt;= 9))"},
           Row{{.channels = "0001", .ids = "-7", .levels = "00000000", .window = "0", .explain = true},
               0,
               ", of every id but not 7, of every level, of the last 0 ms\n"},
           Row{{.channels = "1111", .ids = "1, 2-3", .levels = "11111111", .window = "24h", .explain = true},
               0,
               ", of the ids 1 and 2 to 3, of the levels "},
           Row{{.channels = "0001", .levels = "00001000", .window = "1h", .explain = true},
               0,
               ", of the levels Information (with level 0), of the last 1h\n"},
           Row{{.channels = "0001", .ids = "5-6,-6", .levels = "00000000", .window = "1s"}, 0, "EventID=6"},
           Row{{.channels = "0001", .ids = "5,-5", .levels = "00000000", .window = "1s"}, 2, "is left out by it, too"},
           Row{{.channels = "0001", .ids = "5-6,-0-5,-6-65535", .levels = "00000000", .window = "1s"},
               2,
               "is left out by it, too"},
           Row{{.channels = "0001", .ids = "-0-65535", .levels = "00000000", .window = "1s"}, 2, "is left out"},
           Row{{.channels = "0001", .ids = "9-5", .levels = "00000000", .window = "1s"}, 2, "ends before it begins"},
           Row{{.channels = "0001", .ids = "65536", .levels = "00000000", .window = "1s"}, 2, "above 65535"},
           Row{{.channels = "0001", .ids = "x", .levels = "00000000", .window = "1s"}, 2, "does not match"},
           Row{{.channels = "0000", .levels = "00000000", .window = "1s"}, 2, "tvkctl: "},
           Row{{.channels = "0001", .levels = "2", .window = "1s"}, 2, "eight zeros and ones"},
           Row{{.channels = "0001", .levels = "00000000", .window = "soon"}, 2, "\"soon\" is no time"},
           Row{{.channels = "0001", .levels = "00000000", .window = ""}, 2, "is no time"},
           Row{{.channels = "0001", .levels = "00000000", .window = "99999999999999999999"}, 2, "is no time"},
       }) {
    SCOPED_TRACE(row.options.ids + ' ' + row.options.window);
    std::ostringstream out;
    std::ostringstream errors;
    EXPECT_EQ(RunEventLogQuery(row.options, out, errors), row.result);
    EXPECT_NE((row.result == 0 ? out : errors).str().find(row.said), std::string::npos) << out.str() << errors.str();
    EXPECT_TRUE((row.result == 0 ? errors : out).str().empty());
  }
}

}  // namespace
}  // namespace tvkctl
