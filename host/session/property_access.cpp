#include "host/session/property_access.h"

#include <optional>

#include "host/base/text.h"
#include "host/properties/combination.h"

namespace camhost {

namespace {

using Result = SetOutcome::Result;

/// One attempt to set a property and all that the sentence about it depends on, asked of the session
/// once, so that the words ask nobody.
struct Attempt {
    const Property& property;
    CAM_PROP_VALUE wanted;
    const Combination* combination;        ///< that the value chooses, if it is to choose one
    bool by_signal_type;                   ///< how this television selects
    bool was_playing;                      ///< before the call
    std::optional<CAM_PROP_VALUE> before;  ///< of a size: what it was before the call
    CAM_PROP_VALUE record;                 ///< handed over and as it came back
    bool taken;                            ///< the plug-in's answer
    CAM_STATE state;                       ///< after the call
    std::optional<CAM_PROP_VALUE> now;     ///< what it reads after the call, where that says more

    bool same_before() const { return before && before->value == wanted.value; }
    bool same_now() const { return now && now->value == wanted.value; }
};

/// Why a value that the plug-in accepts has no effect; null when it has one.
const char* no_effect_reason(const Attempt& attempt) {
    const int value = attempt.wanted.value;
    switch (attempt.property.number) {
        case CAM_PROPERTY_AUTO_FOCUS:
            return "the plug-in accepts it and does nothing";
        case CAM_PROPERTY_MICVOLUME:
            return value < 0 || value > 100 ? "outside 0 to 100, nothing is sent" : nullptr;
        case CAM_PROPERTY_SAMPLERATE:
            return value != 16000 && value != 24000 ? "only 16000 and 24000 are taken" : nullptr;
        case CAM_PROPERTY_AUTO_HZ:
            return value != 1 && value != 2 ? "only 1 and 2 are sent" : nullptr;
        case CAM_PROPERTY_SIGNAL_TYPE:
            if (attempt.combination == nullptr) {
                return "there is no such signal type, nothing changes";
            }
            return attempt.by_signal_type ? nullptr : "this television selects by video mode";
        case CAM_PROPERTY_VIDEO_MODE:
            return attempt.by_signal_type ? "this television selects by signal type" : nullptr;
        case CAM_PROPERTY_TRIGGER_JPEG:
            return attempt.by_signal_type ? nullptr : "stills are triggered by signal type only";
        default:
            return nullptr;
    }
}

/// True for a refused value that may have been remembered for the next start all the same.
bool may_be_kept(const Attempt& attempt) {
    return !attempt.taken && !attempt.same_before() &&
           attempt.property.assurance == Assurance::kRestart && attempt.state != CAM_STATE_PLAYING;
}

bool kept_though_refused(const Attempt& attempt) {
    if (attempt.property.number == CAM_PROPERTY_VIDEO_MODE) {
        // It cannot be read back; the plug-in stores every mode that it knows.
        return may_be_kept(attempt) && attempt.combination != nullptr;
    }
    return may_be_kept(attempt) && attempt.same_now();
}

/// True when what the property reads now says more than the plug-in's answer did.
bool worth_reading_back(const Attempt& attempt) {
    if (!attempt.taken) {
        return may_be_kept(attempt) && attempt.property.number != CAM_PROPERTY_VIDEO_MODE;
    }
    return attempt.property.gettable && attempt.property.kind != ValueKind::kSwitch &&
           no_effect_reason(attempt) == nullptr;
}

Attempt try_to_set(Session& session, const Assignment& assignment) {
    const Property& property = assignment.property;
    Attempt attempt{.property = property,
                    .wanted = assignment.value,
                    .combination = chosen_combination(property.number, assignment.value.value),
                    .by_signal_type = session.by_signal_type(),
                    .was_playing = session.playing(),
                    .before = {},
                    .record = assignment.value,
                    .taken = false,
                    .state = {},
                    .now = {}};
    if (property.kind == ValueKind::kSize && property.gettable) {
        attempt.before = session.get(property.number);
    }
    attempt.taken = session.set(property.number, &attempt.record);
    attempt.state = session.state();
    if (worth_reading_back(attempt)) {
        attempt.now = session.get(property.number);
    }
    return attempt;
}

std::string register_answer(const CAM_PROP_VALUE& value) {
    return format(
        "the register reads 0x%02X (the interface answers false here even when the read "
        "went well, so a failed one cannot be told)",
        static_cast<uint16_t>(value.res[1]) & 0xFFU);
}

/// What an accepted property is worth, with what it reads back as when that differs.
std::string accepted(const Attempt& attempt) {
    std::string words;
    switch (attempt.property.assurance) {
        case Assurance::kReported:
        case Assurance::kLocal:
            words = "set";
            break;
        case Assurance::kRestart:
            words = attempt.was_playing ? "set; recording was restarted unless it was so already"
                                        : "kept for the next start of recording";
            break;
        default:
            words = "sent (the interface does not tell whether the camera obeys)";
            break;
    }
    if (attempt.now && !attempt.same_now()) {
        words += "; it reads back as " + format_value(attempt.property, *attempt.now);
    }
    return words;
}

SetOutcome refused(const Attempt& attempt) {
    if (attempt.property.number == CAM_PROPERTY_DIMENSION && attempt.same_before()) {
        return {Result::kRefused, "refused: it is so already", true};
    }
    return {Result::kRefused, format("refused (the camera is %s)", words_for(attempt.state))};
}

/// What came of the attempt; the sentence without its subject.
SetOutcome outcome_of(const Attempt& attempt) {
    if (attempt.property.assurance == Assurance::kAnswersFalse) {
        return {Result::kDone, register_answer(attempt.record)};
    }
    const char* reason = no_effect_reason(attempt);
    if (attempt.taken) {
        return reason != nullptr
                   ? SetOutcome{Result::kIgnored, std::string("accepted without effect: ") + reason}
                   : SetOutcome{Result::kDone, accepted(attempt)};
    }
    if (kept_though_refused(attempt)) {
        const std::string note = reason != nullptr ? std::string("; but ") + reason : "";
        return {Result::kKept,
                "refused now (the camera is not recording), kept for the next start of recording" +
                    note};
    }
    return refused(attempt);
}

}  // namespace

SetOutcome set_property(Session& session, const Assignment& assignment) {
    const Property& property = assignment.property;
    const std::string subject =
        property.kind == ValueKind::kTrigger
            ? property.name
            : property.name + ("=" + format_value(property, assignment.value));
    SetOutcome outcome = outcome_of(try_to_set(session, assignment));
    outcome.sentence.insert(0, subject + ": ");
    return outcome;
}

GetOutcome get_property(const Session& session, const Property& property) {
    const auto value = session.get(property.number);
    GetOutcome outcome;
    outcome.ok = value.has_value();
    if (value) {
        outcome.value = format_value(property, *value);
        if (*property.unit != '\0') {
            outcome.value += std::string(" ") + property.unit;
        }
        outcome.sentence = std::string(property.name) + " = " + outcome.value;
    } else {
        outcome.sentence = std::string(property.name) + ": refused, the plug-in does not answer it";
    }
    return outcome;
}

}  // namespace camhost
