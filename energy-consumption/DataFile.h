// energy_log.dat in the application data directory: create, open, seek, read and write exact
// byte counts. Every failure is a std::runtime_error with a fixed message. A DataFile is a
// short-lived local object; its destructor closes the stream.
#pragma once

#include <fstream>
#include <string>

namespace powermeter {

class DataFile {
  public:
    DataFile();
    ~DataFile();
    DataFile(const DataFile&) = delete;
    DataFile& operator=(const DataFile&) = delete;

    bool IsExist();
    // Closes the stream and deletes the file unless it is not a regular file; the outcome is
    // not checked.
    void Remove();
    // Opens for binary reading and writing without truncation; with `create`, the file is
    // first (re)created holding a zero count. Anything but a regular file is not opened.
    void Open(bool create);
    void Close();
    void SeekToEnd();
    void SeekFromBeg(unsigned int position);
    void Write(char* buffer, unsigned int size);
    void Read(char* buffer, unsigned int size);
    // Replaces the whole file with `size` bytes. They are written to a temporary file in the
    // same directory, flushed to the disk and renamed over the file, so that a kill or a
    // failure at any moment leaves the previous file or the new one, never a part of either.
    // A symbolic link in the file's place stays: the file it names is the one replaced.
    void Replace(const char* buffer, unsigned int size);

  private:
    bool is_exist();
    // True when the path opens as something other than a regular file (links followed).
    bool is_special_file();
    bool is_file_symbolic_link();
    // The file that writes reach: the path with every link resolved, or the path itself when
    // it does not resolve (no file yet, or a link to nothing).
    std::string write_target();
    void create_file();
    void close_file();
    void throw_exception_when_stream_is_not_opened();

    std::fstream stream;
    std::string path;  // data directory (ends in '/') + "energy_log.dat"
};

}  // namespace powermeter
