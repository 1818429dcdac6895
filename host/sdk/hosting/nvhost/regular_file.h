#pragma once

#include <sys/stat.h>
#include <boost/system/error_code.hpp>
#include <string>

namespace nv::hosting {

/// Owns a descriptor.
class Descriptor {
  public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return number_; }
    bool isOpen() const { return number_ >= 0; }
    int release();

  private:
    int number_;
};

/// The error that `errno` stands for.
boost::system::error_code lastError();

/// Opens a regular file for reading without ever blocking on what is none (a FIFO, a device). A
/// symbolic link is none either: an archive may have left one that points elsewhere.
/// @param status  what the file is, when not null
/// @return a closed descriptor when `error` is set
Descriptor openRegularFile(const std::string& path, boost::system::error_code& error,
                           struct stat* status = nullptr);

/// Reads a regular file whole; one over 16 MB is an error.
std::string readRegularFile(const std::string& path, boost::system::error_code& error);

}  // namespace nv::hosting
