#include <boost/regex.hpp>

namespace NmToolkit {
namespace {

// The two forms of UTC time texts, compiled once at library load and run once
// so that a broken expression shows at load, not at first use.
struct CmUTCTimeExpressions {
  CmUTCTimeExpressions()
      : withOffset(
            "^\\s*(\\d{4})\\-(\\d{2})\\-(\\d{2})[Tt](\\d{2})\\:(\\d{2})\\:(\\d{2})(\\.(\\d+))?"
            "([\\+\\-])(\\d{2})\\:(\\d{2})\\s*$"),
        withZulu("^\\s*(\\d{4})\\-(\\d{2})\\-(\\d{2})[Tt](\\d{2})\\:(\\d{2})\\:(\\d{2})(\\.(\\d+))?"
                 "[Zz]\\s*$") {
    boost::smatch match;
    const std::string probe = "hello, world!";
    boost::regex_match(probe, match, withOffset);
    boost::regex_match(probe, match, withZulu);
  }
  boost::regex withOffset;
  boost::regex withZulu;
};

const CmUTCTimeExpressions utcTimeExpressions;

} // namespace
} // namespace NmToolkit
