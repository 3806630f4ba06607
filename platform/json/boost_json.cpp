// The part of Boost.JSON that is not in its headers; Debian's library would cost a shared object more.
#include <boost/json/src.hpp>
