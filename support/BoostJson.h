#pragma once

// Boost.JSON, which tells with each error where in its own code it was found. Nobody asks; but those 160 places have
// addresses in them, which the loader writes at every start, and each waiting daemon would hold a page of them. A place
// without a name needs none.
#include <boost/assert/source_location.hpp>

#undef BOOST_CURRENT_LOCATION
#define BOOST_CURRENT_LOCATION ::boost::source_location(nullptr, 0, nullptr)

#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/src.hpp>
