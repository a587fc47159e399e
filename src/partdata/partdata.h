// A node's part data as the compiler reads it: the FSMakeMdlData text kept in the
// node's attach field, read into what it says (visibility conditions, clickable
// spots, attach points, platforms) and written back as text. What it does not
// know is kept as written, in its place.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarnvale::platform {
class XmlDocument;
}

namespace tarnvale::partdata {

enum class Kind {
    visibility,  // <Visibility name="PART">: shown as the part's condition says
    mouseRect,   // <MouseRect name="PART">: a spot the user clicks
    attachPoint, // <Attachpoint name="N">: an effect or a library object at the node's pivot
    platform,    // <Platform name="N" surfaceType="S">: a surface one can stand on
    noCrash,     // <NoCrash/>: the node takes no part in crashes
    other,       // anything else, kept as written
};

// What an attach point carries.
enum class Attached { none, effect, libraryObject };

struct Element {
    Kind kind = Kind::other;
    std::string name; // the part, attach point or platform named
    Attached attached = Attached::none;
    std::string effectName, effectParams; // an attach point's effect
    std::string objectGuid, objectScale;  // an attach point's library object
    std::string surface;                  // a platform's surfaceType
    // The element as written, when it holds more than the fields above say (or
    // is of no kind above); it is written back so. Empty for one made from the
    // fields.
    std::string xml;
};

struct PartData {
    std::optional<std::string> version = "9.0";                      // the root's version attribute
    std::vector<std::pair<std::string, std::string>> rootAttributes; // the root's others
    std::vector<Element> elements;

    // The first element of the kind, or none.
    const Element* find(Kind kind) const;
    // Puts `e` in place of the first element of its kind (or at the end), and
    // drops any further one of that kind.
    void set(Element e);
    // Removes every element of the kind; false when there was none.
    bool remove(Kind kind);
};

// Why a text is no part data: it is not well-formed, or its root is another.
struct Unreadable {
    bool wellFormed = false;
    std::string root; // of a well-formed text
    std::string reason() const;
};

// Parses a part data text (UTF-8, as the scene keeps it; read as the compiler
// reads the code page's bytes). Empty text is empty part data. None, and why in
// `why`, when it is not well-formed or its root is not FSMakeMdlData.
std::optional<PartData> parse(const std::string& text, Unreadable* why = nullptr);

// The text: an ISO-8859-1 declaration, then the root with one element a line
// (characters outside the code page as references), in UTF-8 as the scene keeps it.
// Throws std::invalid_argument when an element or attribute name holds a character
// outside the code page, which no reference can stand for.
std::string write(const PartData& data);

// The names a kind takes on the command line and in reports ("visibility",
// "mouse-rect", "attach-point", "platform", "no-crash", "other"), and back.
const char* kindName(Kind kind);
std::optional<Kind> kindNamed(const std::string& name);

// The surface types a platform takes.
const std::vector<std::string>& surfaceTypes();

// A part of the model definition (ModelInfo/PartInfo) and what it has.
struct PartInfo {
    std::string name;
    bool animation = false, visibility = false, visibleInRange = false, mouseRect = false;
};
std::vector<PartInfo> partInfos(const platform::XmlDocument& modelDef);
// The parts an element of the kind may name: those with a Visibility or
// VisibleInRange for a visibility, with a MouseRect for a mouse rect.
std::vector<std::string> partsFor(const std::vector<PartInfo>& parts, Kind kind);

// An effect's name without its file extension (the simulator adds its own), or
// none when it has none.
std::optional<std::string> withoutExtension(const std::string& effectName);

// Up to `count` of `names` nearest to `name` (fewest edits, then as they came).
std::vector<std::string> nearestNames(const std::string& name, const std::vector<std::string>& names,
                                      size_t count = 3);

// Whether a text is a GUID as the model definition writes one: 32 hex digits in
// groups of 8-4-4-4-12, within braces or not.
bool isGuid(const std::string& text);

} // namespace tarnvale::partdata
