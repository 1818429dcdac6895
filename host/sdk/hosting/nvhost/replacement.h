#pragma once

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>
#include <string>

namespace nv::hosting {

/// Whether the last nv::file::replace of a target of this name failed. Clears the mark. I/O thread.
bool takeReplacementFailure(const std::string& fileName);

/// A name for something hidden that is being prepared beside what it will replace: ".put-" and
/// eight random hexadecimal digits. Short, so that the longest file name can have one.
std::string siblingName();
/// Whether a name has the form that siblingName gives.
bool isSiblingName(const std::string& name);

/// Puts a flushed copy of `source` in place of `target` as nv::file::replace does, but `source`
/// stays, and a failure is only returned.
void placeCopy(const boost::filesystem::path& source, const boost::filesystem::path& target,
               boost::system::error_code& error) noexcept;

}  // namespace nv::hosting
