#include <fmt/core.h>

#include <iostream>

#include "check/elf_symbols.h"
#include "check/interface_table.h"
#include "check/runner.h"
#include "cli/commands/command_table.h"
#include "cli/operations.h"
#include "cli/terminal/cpu_level.h"
#include "cli/terminal/errors.h"
#include "host/host_collection.h"

namespace qel::cli {
namespace {

constexpr int kTimeLimitSeconds = 20;

void PrintNames(const char* title, const std::vector<std::string>& names) {
  std::cout << title;
  for (const std::string& name : names) std::cout << "  " << name;
  std::cout << (names.empty() ? "  none\n" : "\n");
}

void PrintInterface(const check::InterfaceRow& row) {
  std::cout << "  " << row.name << "  " << check::FormatIid(row.iid) << "\n";
  if (row.name == "IUnknown") return;
  std::string line = "   ";
  for (size_t slot = 3; slot < row.slots.size(); ++slot) {
    if (row.slots[slot].starts_with("ReservedSlot")) continue;
    const std::string text = fmt::format(" {} {}", slot, row.slots[slot]);
    if (line.size() + text.size() > 98) {
      std::cout << line << "\n";
      line = "   ";
    }
    line += text;
  }
  if (line.size() > 3) std::cout << line << "\n";
}

/// A library that a host has loaded and initialised.
struct LoadedModule {
  explicit LoadedModule(const std::string& path) : library(path) {
    library.Initialize(collection.Get());
  }
  /// Empty when the library does not state one.
  std::string Level() const {
    return CpuLevelInUse(reinterpret_cast<const void*>(library.create_function()));
  }

  const SmartPtr<host::HostCollection> collection = host::HostCollection::MakeWithImages();
  const host::ModuleLibrary library;
};

/// A component as it shows itself: the interfaces that a fresh object of it answers.
struct ShownComponent {
  std::string name;
  bool created = false;
  std::vector<const check::InterfaceRow*> interfaces;
};

ShownComponent Show(const check::ComponentRow& component, CreationFunction create) {
  ShownComponent shown{check::PlainName(component.name), false, {}};
  SmartPtr<IUnknown> object;
  create(nullptr, &IID_IUnknown, object.PutVoid());
  if (!object) return shown;
  shown.created = true;
  for (const check::InterfaceRow& row : check::InterfaceTable()) {
    SmartPtr<IUnknown> answer;
    object->QueryInterface(row.iid, answer.PutVoid());
    if (answer) shown.interfaces.push_back(&row);
  }
  return shown;
}

/// Calls `use` with every component of the library that is known here, as soon as it has shown
/// itself: the next one may end the process.
template <typename Use>
void ForEachComponent(const host::ModuleLibrary& library, const Use& use) {
  for (const auto* const rows : {&check::ModuleComponents(), &check::HostComponents()}) {
    for (const check::ComponentRow& component : *rows) {
      check::Doing(check::PlainName(component.name));
      const CreationFunction create = library.Find(component.RefName());
      if (create != nullptr) use(Show(component, create));
    }
  }
}

void PrintModule(const std::string& path) {
  const check::ElfNames names = check::ReadElf(path);
  std::cout << Printable(path) << "\n";
  PrintNames("exports", names.exports);
  PrintNames("needs  ", names.needs);
  const LoadedModule module(path);
  bool any = false;
  ForEachComponent(module.library, [&](const ShownComponent& component) {
    any = true;
    std::cout << "\n" << component.name << "\n";
    if (!component.created) std::cout << "  an object cannot be created\n";
    for (const check::InterfaceRow* const row : component.interfaces) PrintInterface(*row);
  });
  if (!any) std::cout << "\nnone of the components that this tool knows\n";
  const std::string level = module.Level();
  std::cout << "\nlevel in use        " << (level.empty() ? "this library does not tell" : level)
            << "\n";
}

std::vector<std::string> InstructionSets() {
  __builtin_cpu_init();
  const std::pair<const char*, bool> sets[] = {
      {"sse2", true},
      {"avx2", __builtin_cpu_supports("avx2") != 0},
      {"avx512f", __builtin_cpu_supports("avx512f") != 0},
      {"avx512bw", __builtin_cpu_supports("avx512bw") != 0},
      {"avx512vl", __builtin_cpu_supports("avx512vl") != 0},
      {"avx512dq", __builtin_cpu_supports("avx512dq") != 0},
      {"avx512vbmi", __builtin_cpu_supports("avx512vbmi") != 0},
      {"avx512vnni", __builtin_cpu_supports("avx512vnni") != 0},
  };
  std::vector<std::string> names;
  for (const auto& [name, supported] : sets) {
    if (supported) names.push_back(name);
  }
  return names;
}

void PrintProcessor() {
  std::cout << "this processor has ";
  for (const std::string& name : InstructionSets()) std::cout << " " << name;
  std::cout << "\n";
}

std::string TextsAsJson(const std::vector<std::string>& texts) {
  std::vector<std::string> elements;
  for (const std::string& text : texts) elements.push_back(JsonText(text));
  return JsonArray(elements);
}

std::string ComponentAsJson(const ShownComponent& component) {
  std::vector<std::string> interfaces;
  for (const check::InterfaceRow* const row : component.interfaces) {
    const std::vector<std::string> slots(row->slots.begin(), row->slots.end());
    JsonObject interface;
    interface.Text("name", row->name).Text("iid", check::FormatIid(row->iid));
    interfaces.push_back(interface.Json("slots", TextsAsJson(slots)).Object());
  }
  JsonObject text;
  text.Text("name", component.name).Flag("created", component.created);
  return text.Json("interfaces", JsonArray(interfaces)).Object();
}

void PrintModuleAsJson(const std::string& path) {
  const check::ElfNames names = check::ReadElf(path);
  const LoadedModule module(path);
  std::vector<std::string> components;
  ForEachComponent(module.library, [&](const ShownComponent& component) {
    components.push_back(ComponentAsJson(component));
  });
  JsonObject object;
  object.Text("path", path)
      .Json("exports", TextsAsJson(names.exports))
      .Json("needs", TextsAsJson(names.needs))
      .Json("components", JsonArray(components))
      .Text("level", module.Level())
      .Json("processor", TextsAsJson(InstructionSets()));
  std::cout << object.Line() << std::flush;
}

}  // namespace

int InspectCommand(const Words& words) {
  const Options options(words, KnownOptions("inspect"));
  if (options.Files().size() != 1) throw Failure(kUsage, "write qel inspect MODULE");
  const std::string path = std::filesystem::absolute(options.rest().front()).string();
  const bool json = options.Has("--json");
  // Apart, because the module may be broken: what was printed so far stays.
  const std::string fault =
      check::RunApart([&] { json ? PrintModuleAsJson(path) : PrintModule(path); },
                      kTimeLimitSeconds, true)
          .fault;
  if (!fault.empty()) throw Failure(kModuleFault, "{}", fault);
  if (!json) PrintProcessor();
  return kDone;
}

}  // namespace qel::cli
