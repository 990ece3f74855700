// JSON in tests: written as text, or as the values that it is read to.
#pragma once

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

namespace kv {

namespace json = boost::json;

}  // namespace kv
