// A table that work adds a row to as each part of it ends, and that a later run goes on with.
#pragma once

#include <string>
#include <utility>

namespace Tarnwick::App {

class GrowingTable {
public:
    /// @param path  empty: there is no table, and nothing is read or written
    explicit GrowingTable(std::string path) : path_(std::move(path)) {}

    const std::string& Path() const { return path_; }
    /// What it holds; empty where there is none.
    /// @throws DataFailure  it is no regular file
    std::string Text() const;
    /// Replaces it as a whole, or leaves it as it is.
    /// @throws DataFailure  it is no regular file, or cannot be written
    void Replace(const std::string& text) const;
    /// Adds a row with its newline, or takes back what of it was written.
    /// @throws DataFailure  it cannot be written
    void Add(const std::string& row) const;

private:
    std::string path_;
};

}  // namespace Tarnwick::App
