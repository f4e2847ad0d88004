// The simulated file tree of sim::FileManager.
#include <algorithm>

#include "sim/Platform.h"

namespace sim {
namespace {

std::string parentOf(const std::string& path) {
  auto slash = path.find_last_of('/');
  if (slash == std::string::npos || slash == 0) return "/";
  return path.substr(0, slash);
}

std::string normal(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

platform::Error fileError(int code, const std::string& text, const std::string& path) {
  return platform::Error{"NSCocoaErrorDomain", code, text, {{"NSFilePath", path}}};
}

}  // namespace

const FileManager::Node* FileManager::resolve(const std::string& path) const {
  static const Node root{Node::Folder, {}, {}};
  std::string p = normal(path);
  for (int hops = 0; hops < 8; ++hops) {
    if (p == "/") return &root;
    auto it = nodes_.find(p);
    if (it == nodes_.end()) return nullptr;
    if (it->second.kind != Node::Link) return &it->second;
    const std::string& t = it->second.target;
    p = normal(!t.empty() && t[0] == '/' ? t : parentOf(p) + "/" + t);
  }
  return nullptr;
}

void FileManager::putFile(const std::string& path, std::vector<std::uint8_t> data) {
  putFolder(parentOf(normal(path)));
  std::lock_guard lock(mu_);
  nodes_[normal(path)] = Node{Node::File, std::move(data), {}};
}

void FileManager::putFolder(const std::string& path) {
  std::lock_guard lock(mu_);
  for (std::string p = normal(path); p != "/"; p = parentOf(p)) {
    if (!nodes_.count(p)) nodes_[p] = Node{Node::Folder, {}, {}};
  }
}

void FileManager::putLink(const std::string& path, std::string target) {
  putFolder(parentOf(normal(path)));
  std::lock_guard lock(mu_);
  nodes_[normal(path)] = Node{Node::Link, {}, std::move(target)};
}

void FileManager::setWriteCapacity(std::optional<std::int64_t> bytes) {
  std::lock_guard lock(mu_);
  capacity_ = bytes;
  written_ = 0;
}

void FileManager::failRemovals(std::set<std::string> paths) {
  std::lock_guard lock(mu_);
  failingRemovals_ = std::move(paths);
}

std::vector<std::string> FileManager::namesIn(const std::string& path) const {
  std::lock_guard lock(mu_);
  std::string prefix = normal(path) == "/" ? "/" : normal(path) + "/";
  std::vector<std::string> names;
  for (auto it = nodes_.lower_bound(prefix); it != nodes_.end() && it->first.compare(0, prefix.size(), prefix) == 0; ++it) {
    std::string rest = it->first.substr(prefix.size());
    if (!rest.empty() && rest.find('/') == std::string::npos) names.push_back(rest);
  }
  return names;
}

std::optional<std::vector<std::uint8_t>> FileManager::bytesAt(const std::string& path) const {
  std::lock_guard lock(mu_);
  const Node* n = resolve(path);
  if (!n || n->kind != Node::File) return std::nullopt;
  return n->data;
}

bool FileManager::fileExistsAtPath(const std::string& path, bool* isDirectory) {
  std::lock_guard lock(mu_);
  const Node* n = resolve(path);
  if (isDirectory) *isDirectory = n && n->kind == Node::Folder;
  return n != nullptr;
}

bool FileManager::createDirectoryAtPath(const std::string& path, bool intermediates, platform::Error* error) {
  std::lock_guard lock(mu_);
  std::string p = normal(path);
  if (const Node* n = resolve(p)) {
    if (n->kind == Node::Folder && intermediates) return true;
    if (error) *error = fileError(516, "The file couldn't be saved because a file with the same name already exists.", p);
    return false;
  }
  std::vector<std::string> missing;
  for (std::string q = p; q != "/" && !resolve(q); q = parentOf(q)) missing.push_back(q);
  const Node* top = resolve(parentOf(missing.back()));
  if ((!intermediates && missing.size() > 1) || !top || top->kind != Node::Folder) {
    if (error) *error = fileError(4, "The folder couldn't be made because its parent is missing.", p);
    return false;
  }
  for (const auto& q : missing) nodes_[q] = Node{Node::Folder, {}, {}};
  return true;
}

std::optional<std::vector<std::string>> FileManager::contentsOfDirectoryAtPath(const std::string& path,
                                                                              platform::Error* error) {
  {
    std::lock_guard lock(mu_);
    const Node* n = resolve(path);
    if (!n || n->kind != Node::Folder) {
      if (error) *error = fileError(260, "The folder couldn't be opened because there is no such folder.", path);
      return std::nullopt;
    }
  }
  return namesIn(path);
}

bool FileManager::writeData(const std::vector<std::uint8_t>& data, const std::string& path, platform::Error* error) {
  std::lock_guard lock(mu_);
  std::string p = normal(path);
  const Node* parent = resolve(parentOf(p));
  if (!parent || parent->kind != Node::Folder) {
    if (error) *error = fileError(4, "The file couldn't be saved because the folder doesn't exist.", p);
    return false;
  }
  if (auto it = nodes_.find(p); it != nodes_.end() && it->second.kind == Node::Folder) {
    if (error) *error = fileError(512, "The file couldn't be saved because a folder is in its place.", p);
    return false;
  }
  if (capacity_ && written_ + static_cast<std::int64_t>(data.size()) > *capacity_) {
    if (error) *error = fileError(640, "The file couldn't be saved because there isn't enough space.", p);
    return false;
  }
  written_ += static_cast<std::int64_t>(data.size());
  nodes_[p] = Node{Node::File, data, {}};
  return true;
}

std::optional<std::vector<std::uint8_t>> FileManager::contentsAtPath(const std::string& path, platform::Error* error) {
  auto bytes = bytesAt(path);
  if (!bytes && error) *error = fileError(260, "The file couldn't be opened because there is no such file.", path);
  return bytes;
}

bool FileManager::removeItemAtPath(const std::string& path, platform::Error* error) {
  std::lock_guard lock(mu_);
  std::string p = normal(path);
  if (!nodes_.count(p) || failingRemovals_.count(p)) {
    if (error) *error = fileError(4, "The item couldn't be removed.", p);
    return false;
  }
  bool folder = nodes_[p].kind == Node::Folder;
  nodes_.erase(p);
  if (folder) {
    std::string prefix = p + "/";
    for (auto it = nodes_.lower_bound(prefix); it != nodes_.end() && it->first.compare(0, prefix.size(), prefix) == 0;)
      it = nodes_.erase(it);
  }
  return true;
}

}  // namespace sim
