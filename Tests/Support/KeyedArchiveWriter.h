#pragma once

#include <plist/plist.h>

#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace kite::test {

struct FreePlist {
  void operator()(void* node) const { plist_free(node); }
};
using Plist = std::unique_ptr<std::remove_pointer_t<plist_t>, FreePlist>;

inline std::string binaryDocument(plist_t root) {
  char* bytes = nullptr;
  std::uint32_t size = 0;
  plist_to_bin(root, &bytes, &size);
  std::string document(bytes, size);
  std::free(bytes);
  return document;
}
inline std::string xmlDocument(plist_t root) {
  char* bytes = nullptr;
  std::uint32_t size = 0;
  plist_to_xml(root, &bytes, &size);
  std::string document(bytes, size);
  std::free(bytes);
  return document;
}

/// Writes the archives that earlier versions left behind, object by object, with a library that has
/// nothing in common with the reader under test.
class KeyedArchiveWriter {
 public:
  /// The place of an object in the archive; 0 is the null object.
  using Reference = std::uint64_t;

  KeyedArchiveWriter() { add(plist_new_string("$null")); }

  Reference text(const char* value) { return add(plist_new_string(value)); }
  Reference integer(std::uint64_t value) { return add(plist_new_uint(value)); }
  Reference real(double value) { return add(plist_new_real(value)); }
  Reference boolean(bool value) { return add(plist_new_bool(value ? 1 : 0)); }
  Reference data(const std::string& bytes) {
    return add(plist_new_data(bytes.data(), bytes.size()));
  }
  Reference date(double secondsSince2001) {
    return instance("NSDate", {{"NS.time", plist_new_real(secondsSince2001)}});
  }
  /// A decimal number whose mantissa is these 16 bytes, of which so many pairs count.
  Reference decimal(const std::string& mantissa, int length, int exponent, bool isNegative = false,
                    int byteOrder = 1, const char* className = "NSDecimalNumber") {
    return instance(className, {{"NS.mantissa", plist_new_data(mantissa.data(), mantissa.size())},
                                {"NS.mantissa.bo", integerNode(byteOrder)},
                                {"NS.length", integerNode(length)},
                                {"NS.exponent", integerNode(exponent)},
                                {"NS.negative", plist_new_bool(isNegative ? 1 : 0)},
                                {"NS.compact", plist_new_bool(1)}});
  }

  Reference array(const std::vector<Reference>& elements, const char* className = "NSArray") {
    return instance(className, {{"NS.objects", references(elements)}});
  }
  Reference dictionary(const std::vector<std::pair<Reference, Reference>>& entries,
                       const char* className = "NSDictionary") {
    std::vector<Reference> keys, values;
    for (const auto& [key, value] : entries) {
      keys.push_back(key);
      values.push_back(value);
    }
    return instance(className, {{"NS.keys", references(keys)}, {"NS.objects", references(values)}});
  }

  /// An object of any class. Takes the members over.
  Reference instance(const char* className,
                     std::initializer_list<std::pair<const char*, plist_t>> members) {
    const auto description = plist_new_dict();
    const auto classes = plist_new_array();
    plist_array_append_item(classes, plist_new_string(className));
    plist_array_append_item(classes, plist_new_string("NSObject"));
    plist_dict_set_item(description, "$classname", plist_new_string(className));
    plist_dict_set_item(description, "$classes", classes);
    const auto object = plist_new_dict();
    plist_dict_set_item(object, "$class", plist_new_uid(add(description)));
    for (const auto& [name, value] : members) plist_dict_set_item(object, name, value);
    return add(object);
  }
  static plist_t references(const std::vector<Reference>& targets) {
    const auto array = plist_new_array();
    for (const auto target : targets) plist_array_append_item(array, plist_new_uid(target));
    return array;
  }

  static plist_t integerNode(int value) {
    return plist_new_uint(static_cast<std::uint64_t>(value));  // read back as signed
  }

  /// The archive with this root, as a tree of property-list nodes.
  Plist archive(Reference root) const {
    const auto top = plist_new_dict();
    plist_dict_set_item(top, "root", plist_new_uid(root));
    Plist archive(plist_new_dict());
    plist_dict_set_item(archive.get(), "$archiver", plist_new_string("NSKeyedArchiver"));
    plist_dict_set_item(archive.get(), "$version", plist_new_uint(100000));
    plist_dict_set_item(archive.get(), "$top", top);
    plist_dict_set_item(archive.get(), "$objects", plist_copy(_objects.get()));
    return archive;
  }
  std::string binary(Reference root) const { return binaryDocument(archive(root).get()); }
  std::string xml(Reference root) const { return xmlDocument(archive(root).get()); }

 private:
  Reference add(plist_t object) {
    plist_array_append_item(_objects.get(), object);
    return plist_array_get_size(_objects.get()) - 1;
  }

  Plist _objects{plist_new_array()};
};

}  // namespace kite::test
