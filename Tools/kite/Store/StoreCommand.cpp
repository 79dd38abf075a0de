#include "Store/StoreCommand.h"

#include "Common/CommandFailure.h"
#include "Common/WriteAll.h"
#include "Store/OpenStore.h"
#include "Store/PutValue.h"
#include "Store/StoredText.h"

#include <fmt/format.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <string>

namespace kite::tool {
namespace {

struct Options {
  StoreChoice store;
  std::string key;
  std::string file;
  std::string form;
};

void keys(const Options& options) {
  std::string lines;
  for (const auto& entry : openStore(options.store)->entries()) lines += entry.key + "\n";
  writeAll(STDOUT_FILENO, lines);
}

void get(const Options& options) {
  const auto text = storedText(*openStore(options.store), options.key);
  if (!text) throw CommandFailure(fmt::format("there is nothing under \"{}\"", options.key));
  writeAll(STDOUT_FILENO, *text);
}

void put(Options options) {
  options.store.forWriting = true;
  const auto value = readValue(options.file, options.form);
  putValue(*openStore(options.store), options.key, value);
}

void remove(Options options) {
  options.store.forWriting = true;
  openStore(options.store)->storage()->remove(options.key);
}

std::string lineOf(const Linux::CheckedFile& file) {
  const auto found = file.damaged > 0 ? fmt::format("{} damaged", file.damaged) : "sound";
  return fmt::format("{}  {} records, {}{}\n", file.name, file.records, found,
                     file.isCutOff ? ", cut off at the end" : "");
}

void check(const Options& options) {
  const auto kind = options.store.secrets ? Linux::StoreKind::secrets : Linux::StoreKind::keyValues;
  const auto files = Linux::checkStore(folderOf(options.store), kind);
  if (!files) throw CommandFailure(files.error());
  std::string lines;
  for (const auto& file : *files) lines += lineOf(file);
  writeAll(STDOUT_FILENO, lines);
  if (std::ranges::any_of(*files, [](const auto& file) { return file.damaged > 0; }))
    throw CommandFailure("the store is damaged");
}

using Action = void (*)(Options);

CLI::App* addAction(CLI::App& command, const std::string& name, const std::string& description,
                    const std::shared_ptr<Options>& options, Action action) {
  auto* subcommand = command.add_subcommand(name, description);
  subcommand->fallthrough();
  subcommand->callback([options, action] { action(*options); });
  return subcommand;
}

CLI::App* addKeyAction(CLI::App& command, const std::string& name, const std::string& description,
                       const std::shared_ptr<Options>& options, Action action) {
  auto* subcommand = addAction(command, name, description, options, action);
  subcommand->add_option("key", options->key, "The key")->type_name("KEY")->required();
  return subcommand;
}

}  // namespace

CLI::App* addStoreCommand(CLI::App& parent) {
  auto* command = parent.add_subcommand("store", "Look into a host's stores, or change one value");
  const auto options = std::make_shared<Options>();
  addStoreChoice(*command, options->store);
  command->add_flag("--secrets", options->store.secrets,
                    "The secrets store instead of the key-value store");
  addAction(*command, "keys", "Print the keys, one per line", options,
            [](Options given) { keys(given); });
  addKeyAction(*command, "get",
               "Print one value: JSON text and raw data as they are stored, others as JSON",
               options, [](Options given) { get(given); });
  auto* putCommand = addKeyAction(*command, "put", "Replace one value with what a file holds",
                                  options, [](Options given) { put(std::move(given)); });
  putCommand->add_option("file", options->file, "The file")->type_name("FILE")->required();
  putCommand->add_option("--as", options->form, "What it is: json, number, data or plist")
      ->type_name("FORM")
      ->check(CLI::IsMember({"json", "number", "data", "plist"}).description(""))
      ->required();
  addAction(*command, "check", "Verify every checksum and say what each file holds", options,
            [](Options given) { check(given); });
  addKeyAction(*command, "delete", "Remove one value", options,
               [](Options given) { remove(std::move(given)); });
  command->require_subcommand(1);
  return command;
}

}  // namespace kite::tool
