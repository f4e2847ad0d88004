// ContactModel: one row of the address-book list. Its texts are fixed at creation; only the
// selection flag changes, from the main thread, and the removal loop reads it from a
// background queue.
#pragma once

#include <atomic>
#include <string>

namespace contacts {

class ContactModel {
 public:
  // There is no empty model: every row gets its name and number at creation.
  ContactModel(std::string name, std::string number)
      : contactName(std::move(name)), contactNumber(std::move(number)) {}
  ContactModel() = delete;

  const std::string contactImg = "dp";
  // The formatted full name, or "No Name".
  const std::string contactName;
  // The first number as written, or empty.
  const std::string contactNumber;
  const std::string infoImg = "info";
  std::atomic<bool> isSelected{false};
};

}  // namespace contacts
