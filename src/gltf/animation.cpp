// glTF animations as keyframes the simulator can take: translations and
// rotations, linear between keys. Splines are sampled, steps held, rotations kept
// on one hemisphere; where several animations key one part, the first wins.
#include "gltf/internal.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <set>

namespace tarnvale::gltf {

namespace {

using Value = std::array<double, 4>;

// A channel's keys in glTF's own frame.
struct Track {
    std::vector<double> times;
    std::vector<Value> values;
};

// Spline samples that would exceed this many keys in one channel are refused.
constexpr size_t kMaxSamples = 1000000;
// A sample this close to a key (seconds) adds nothing to it.
constexpr double kNearKey = 1e-4;
// A held value ends this long (seconds) before the next key, or halfway there.
constexpr double kStepLead = 1e-3;
// Scale keys this close to the rest scale change nothing the simulator would show.
constexpr double kScaleTolerance = 1e-4;

Value valueAt(const AccessorView& out, size_t element, int width) {
    Value v{0, 0, 0, 0};
    for (int c = 0; c < width; ++c)
        v[c] = out.component(element, c);
    return v;
}

Value hermite(const Value& v0, const Value& out0, const Value& in1, const Value& v1, double span, double s) {
    const double s2 = s * s, s3 = s2 * s;
    const double h00 = 2 * s3 - 3 * s2 + 1, h10 = s3 - 2 * s2 + s, h01 = -2 * s3 + 3 * s2, h11 = s3 - s2;
    Value p{};
    for (int c = 0; c < 4; ++c)
        p[c] = h00 * v0[c] + h10 * span * out0[c] + h01 * v1[c] + h11 * span * in1[c];
    return p;
}

void normalise(Value& q) {
    const double len = std::sqrt(q[0] * q[0] + q[1] * q[1] + q[2] * q[2] + q[3] * q[3]);
    if (len > 0)
        for (double& c : q)
            c /= len;
}

// The keys of one sampler as the simulator should see them; empty when its times
// run back (the channel is then left out).
Track readTrack(const tinygltf::AnimationSampler& sampler, const AccessorView& in, const AccessorView& out,
                int width, bool rotation, double rate, const std::string& what) {
    const size_t n = in.count();
    const bool cubic = sampler.interpolation == "CUBICSPLINE", step = sampler.interpolation == "STEP";
    std::vector<double> t(n);
    for (size_t k = 0; k < n; ++k) {
        t[k] = in.component(k, 0);
        if (!std::isfinite(t[k])) throw SceneError(what + " has a key time that is not a number");
        if (k > 0 && t[k] < t[k - 1]) return {};
    }
    auto value = [&](size_t k, size_t part) {
        Value v = valueAt(out, cubic ? 3 * k + part : k, width);
        for (double c : v)
            if (!std::isfinite(c)) throw SceneError(what + " has a key that is not a number");
        return v;
    };
    if (cubic && n > 1 && (t[n - 1] - t[0]) * rate > static_cast<double>(kMaxSamples))
        throw SceneError(what + ": the spline would need more than " + std::to_string(kMaxSamples) +
                         " samples at this sample rate");
    Track track;
    for (size_t k = 0; k < n; ++k) {
        const Value v = value(k, 1);
        track.times.push_back(t[k]);
        track.values.push_back(v);
        if (k + 1 == n || t[k + 1] == t[k]) continue;
        if (step) {
            track.times.push_back(t[k + 1] - std::min(kStepLead, (t[k + 1] - t[k]) / 2));
            track.values.push_back(v);
        } else if (cubic) {
            const Value out0 = value(k, 2), in1 = value(k + 1, 0), v1 = value(k + 1, 1);
            const double span = t[k + 1] - t[k];
            // Samples on the global grid of the rate, so that neighbouring keys agree.
            for (double g = std::floor(t[k] * rate) + 1; g / rate < t[k + 1] - kNearKey; ++g) {
                if (g / rate <= t[k] + kNearKey) continue;
                Value p = hermite(v, out0, in1, v1, span, (g / rate - t[k]) / span);
                if (rotation) normalise(p);
                track.times.push_back(g / rate);
                track.values.push_back(p);
            }
            if (n == 2 && track.times.size() == 1) { // too short for a sample: its middle
                Value p = hermite(v, out0, in1, v1, span, 0.5);
                if (rotation) normalise(p);
                track.times.push_back((t[0] + t[1]) / 2);
                track.values.push_back(p);
            }
        } else if (n == 2) {
            // A hinge of two keys gets its midpoint as a third, on the line (or the
            // short arc) between them, so that the three-key rule keeps it.
            Value p = value(1, 1);
            const double dot = v[0] * p[0] + v[1] * p[1] + v[2] * p[2] + v[3] * p[3];
            for (int c = 0; c < 4; ++c)
                p[c] = (v[c] + (rotation && dot < 0 ? -p[c] : p[c])) / 2;
            if (rotation) normalise(p);
            track.times.push_back((t[0] + t[1]) / 2);
            track.values.push_back(p);
        }
    }
    if (rotation) {
        // q and -q are one rotation: each key on the hemisphere of the one before,
        // so that linear interpolation takes the short way.
        for (size_t k = 1; k < track.values.size(); ++k) {
            Value& q = track.values[k];
            const Value& p = track.values[k - 1];
            if (q[0] * p[0] + q[1] * p[1] + q[2] * p[2] + q[3] * p[3] < 0)
                for (double& c : q)
                    c = -c;
        }
    }
    return track;
}

// Left-handed key records: x mirrored for positions, (x, -y, -z, w) for rotations.
// The first value, in glTF's frame, is the part's pose where the animation starts.
void appendRecords(const Track& track, bool rotation, NodeKeys& node) {
    if (rotation)
        node.rotation = track.values.front();
    else
        node.translation = {track.values.front()[0], track.values.front()[1], track.values.front()[2]};
    std::vector<KeyRecord>& keys = node.keys;
    for (size_t k = 0; k < track.times.size(); ++k) {
        const Value& v = track.values[k];
        KeyRecord r;
        r.time = static_cast<float>(track.times[k]);
        if (rotation) {
            r.kind = 2;
            r.kx = static_cast<float>(v[0]), r.ky = static_cast<float>(-v[1]),
            r.kz = static_cast<float>(-v[2]);
            r.kw = static_cast<float>(v[3]);
        } else {
            r.kind = 0;
            r.kx = static_cast<float>(-v[0]), r.ky = static_cast<float>(v[1]),
            r.kz = static_cast<float>(v[2]);
        }
        keys.push_back(r);
    }
}

// An animation's name as the user names it: its own, or "animation N".
std::string animationLabel(const tinygltf::Model& model, size_t index) {
    const std::string& name = model.animations[index].name;
    return name.empty() ? "animation " + std::to_string(index) : name;
}

std::string animationName(const tinygltf::Model& model, size_t index) {
    return "\"" + animationLabel(model, index) + "\"";
}

// Whether a scale channel moves its node away from its rest scale, or a weights
// channel keys morph targets at all.
bool changesWhatIsNotExported(const Document& model, const tinygltf::AnimationChannel& ch,
                              const tinygltf::Animation& anim, const std::string& what) {
    if (ch.target_path != "scale") return true;
    if (ch.sampler < 0 || static_cast<size_t>(ch.sampler) >= anim.samplers.size()) return true;
    const tinygltf::AnimationSampler& s = anim.samplers[static_cast<size_t>(ch.sampler)];
    const tinygltf::Node& node = model.nodes[static_cast<size_t>(ch.target_node)];
    Value rest{1, 1, 1, 0};
    if (node.scale.size() == 3) rest = {node.scale[0], node.scale[1], node.scale[2], 0};
    AccessorView out(model, s.output, what + " output");
    const bool cubic = s.interpolation == "CUBICSPLINE";
    for (size_t k = cubic ? 1 : 0; k < out.count(); k += cubic ? 3 : 1)
        for (int c = 0; c < 3 && c < out.components(); ++c)
            if (!(std::abs(out.component(k, c) - rest[c]) <= kScaleTolerance)) return true;
    return false;
}

// "a, b, c" of at most ten names, then how many more.
std::string nameList(const std::vector<std::string>& names) {
    std::string out;
    for (size_t i = 0; i < names.size() && i < 10; ++i)
        out += (i ? ", " : "") + names[i];
    if (names.size() > 10) out += " and " + std::to_string(names.size() - 10) + " more";
    return out;
}

// What the walk over the channels leaves out, told in one warning each.
struct LeftOut {
    std::vector<std::string> unkeyable; // nodes with scale or weight channels
    std::set<int> unkeyableSeen;
    // Per left-out animation: the nodes, and the animations kept there.
    std::map<size_t, std::pair<std::vector<int>, std::set<size_t>>> shadowed;
    std::vector<std::string> runBack;
    std::vector<std::string> tooFewKeys; // nodes the three-key rule leaves unanimated

    void report(const tinygltf::Model& model, std::vector<std::string>& warnings) const {
        if (!tooFewKeys.empty())
            warnings.push_back("fewer than 3 keys, so not animated (the simulator needs 3): " +
                               nameList(tooFewKeys));
        if (!unkeyable.empty())
            warnings.push_back(
                "scale and morph-weight animation is not exported (the simulator keys rotations and "
                "positions): " +
                nameList(unkeyable));
        if (!shadowed.empty()) {
            std::string text =
                "several animations key the same parts, and the first in the file is kept for each:";
            bool first = true;
            for (const auto& [animation, where] : shadowed) {
                std::vector<std::string> nodes, kept;
                for (int n : where.first)
                    nodes.push_back(nodeName(model, n));
                for (size_t k : where.second)
                    kept.push_back(animationName(model, k));
                text += std::string(first ? " " : "; ") + animationName(model, animation) +
                        " is left out on " + nameList(nodes) + " (kept: " + nameList(kept) + ")";
                first = false;
            }
            warnings.push_back(text + ". Export another one with --animation NAME");
        }
        for (const std::string& what : runBack)
            warnings.push_back(what + ": its key times run back; left out");
    }
};

} // namespace

std::map<int, NodeKeys> readAnimationKeys(const Document& model, const ReadOptions& options,
                                          std::vector<std::string>& warnings) {
    std::map<int, NodeKeys> keys;
    std::map<std::pair<int, bool>, size_t> owner; // (node, rotation) -> the animation that keys it
    LeftOut left;
    bool found = !options.animation;
    for (size_t ai = 0; ai < model.animations.size(); ++ai) {
        const tinygltf::Animation& anim = model.animations[ai];
        if (options.animation && animationLabel(model, ai) != *options.animation) continue;
        found = true;
        for (size_t ci = 0; ci < anim.channels.size(); ++ci) {
            const tinygltf::AnimationChannel& ch = anim.channels[ci];
            const std::string what = "animation " + std::to_string(ai) + " channel " + std::to_string(ci);
            const bool translation = ch.target_path == "translation", rotation = ch.target_path == "rotation";
            const bool unkeyable = ch.target_path == "scale" || ch.target_path == "weights";
            if (!translation && !rotation && !unkeyable) continue;
            if (ch.target_node < 0 || static_cast<size_t>(ch.target_node) >= model.nodes.size())
                throw SceneError(what + " names node " + std::to_string(ch.target_node) +
                                 ", which does not exist");
            if (unkeyable) {
                if (!left.unkeyableSeen.count(ch.target_node) &&
                    changesWhatIsNotExported(model, ch, anim, what)) {
                    left.unkeyableSeen.insert(ch.target_node);
                    left.unkeyable.push_back(nodeName(model, ch.target_node));
                }
                continue;
            }
            const std::pair<int, bool> target{ch.target_node, rotation};
            if (auto it = owner.find(target); it != owner.end()) {
                if (it->second == ai) continue; // a target keyed twice in one animation: the first stands
                auto& [nodes, kept] = left.shadowed[ai];
                if (std::find(nodes.begin(), nodes.end(), ch.target_node) == nodes.end())
                    nodes.push_back(ch.target_node);
                kept.insert(it->second);
                continue;
            }
            if (ch.sampler < 0 || static_cast<size_t>(ch.sampler) >= anim.samplers.size())
                throw SceneError(what + " names a sampler that does not exist");
            const tinygltf::AnimationSampler& s = anim.samplers[ch.sampler];
            AccessorView in(model, s.input, what + " input");
            AccessorView out(model, s.output, what + " output");
            const int width = rotation ? 4 : 3;
            const size_t perKey = s.interpolation == "CUBICSPLINE" ? 3 : 1;
            if (out.components() != width || in.components() != 1 || out.count() < in.count() * perKey)
                throw SceneError(what + " output does not match its input");
            Track track = readTrack(s, in, out, width, rotation, options.sampleRate, what);
            if (track.times.empty() && in.count() > 0) {
                left.runBack.push_back(what);
                continue;
            }
            owner.emplace(target, ai);
            appendRecords(track, rotation, keys[ch.target_node]);
        }
    }
    if (!found) {
        std::vector<std::string> names;
        for (size_t ai = 0; ai < model.animations.size(); ++ai)
            names.push_back(animationName(model, ai));
        throw SceneError(
            "there is no animation named \"" + *options.animation + "\"; " +
            (names.empty() ? std::string("the file has none") : "the file has " + nameList(names)));
    }
    for (const auto& [node, keyed] : keys)
        if (keyed.keys.size() < 3) left.tooFewKeys.push_back(nodeName(model, node));
    left.report(model, warnings);
    return keys;
}

} // namespace tarnvale::gltf
