#include "host/session/property_access.h"

#include "host/base/text.h"
#include "host/properties/combination.h"

namespace camhost {

namespace {

using Result = SetOutcome::Result;

/// Why a value that the plug-in accepts has no effect; null when it has one.
const char* no_effect_reason(const Session& session, const Assignment& wanted) {
    const int value = wanted.value.value;
    switch (wanted.property.number) {
        case CAM_PROPERTY_AUTO_FOCUS:
            return "the plug-in accepts it and does nothing";
        case CAM_PROPERTY_MICVOLUME:
            return value < 0 || value > 100 ? "outside 0 to 100, nothing is sent" : nullptr;
        case CAM_PROPERTY_SAMPLERATE:
            return value != 16000 && value != 24000 ? "only 16000 and 24000 are taken" : nullptr;
        case CAM_PROPERTY_AUTO_HZ:
            return value != 1 && value != 2 ? "only 1 and 2 are sent" : nullptr;
        case CAM_PROPERTY_SIGNAL_TYPE:
            if (find_combination(Selector::kSignalType, value) == nullptr) {
                return "there is no such signal type, nothing changes";
            }
            return session.by_signal_type() ? nullptr : "this television selects by video mode";
        case CAM_PROPERTY_VIDEO_MODE:
            return session.by_signal_type() ? "this television selects by signal type" : nullptr;
        case CAM_PROPERTY_TRIGGER_JPEG:
            return session.by_signal_type() ? nullptr : "stills are triggered by signal type only";
        default:
            return nullptr;
    }
}

bool kept_though_refused(const Session& session, const Assignment& wanted) {
    if (wanted.property.assurance != Assurance::kRestart || session.playing()) {
        return false;
    }
    if (wanted.property.number == CAM_PROPERTY_VIDEO_MODE) {
        // It cannot be read back; the plug-in stores every mode that it knows.
        return find_combination(Selector::kVideoMode, wanted.value.value) != nullptr;
    }
    const auto now = session.get(wanted.property.number);
    return now && now->value == wanted.value.value;
}

std::string register_answer(const CAM_PROP_VALUE& value) {
    return format(
        "the register reads 0x%02X (the interface answers false here even when the read "
        "went well, so a failed one cannot be told)",
        static_cast<uint16_t>(value.res[1]) & 0xFFU);
}

/// What an accepted property is worth, with what it reads back as when that differs.
std::string accepted(const Session& session, const Assignment& wanted, bool was_playing) {
    std::string words;
    switch (wanted.property.assurance) {
        case Assurance::kReported:
        case Assurance::kLocal:
            words = "set";
            break;
        case Assurance::kRestart:
            words = was_playing ? "set; recording was restarted unless it was so already"
                                : "kept for the next start of recording";
            break;
        default:
            words = "sent (the interface does not tell whether the camera obeys)";
            break;
    }
    if (wanted.property.gettable && wanted.property.kind != ValueKind::kSwitch) {
        const auto now = session.get(wanted.property.number);
        if (now && now->value != wanted.value.value) {
            words += "; it reads back as " + format_value(wanted.property, *now);
        }
    }
    return words;
}

std::string refused(const Session& session, const Assignment& wanted, bool same_before) {
    if (wanted.property.number == CAM_PROPERTY_DIMENSION && same_before) {
        return "refused: it is so already";
    }
    return format("refused (the camera is %s)", words_for(session.state()));
}

}  // namespace

SetOutcome set_property(Session& session, const Assignment& assignment) {
    const Property& property = assignment.property;
    const std::string value = format_value(property, assignment.value);
    const std::string subject =
        property.kind == ValueKind::kTrigger ? property.name : property.name + ("=" + value);
    const auto answer = [&](Result result, const std::string& words) {
        return SetOutcome{result, subject + ": " + words};
    };
    const bool was_playing = session.playing();
    const auto before = property.kind == ValueKind::kSize && property.gettable
                            ? session.get(property.number)
                            : std::nullopt;
    CAM_PROP_VALUE record = assignment.value;
    const bool taken = session.set(property.number, &record);
    if (property.assurance == Assurance::kAnswersFalse) {
        return answer(Result::kDone, register_answer(record));
    }
    const char* reason = no_effect_reason(session, assignment);
    if (taken) {
        return reason != nullptr
                   ? answer(Result::kIgnored, std::string("accepted without effect: ") + reason)
                   : answer(Result::kDone, accepted(session, assignment, was_playing));
    }
    const bool same = before && before->value == assignment.value.value;
    if (!same && kept_though_refused(session, assignment)) {
        const std::string note = reason != nullptr ? std::string("; but ") + reason : "";
        return answer(Result::kKept,
                      "refused now (the camera is not recording), kept for the next "
                      "start of recording" +
                          note);
    }
    return answer(Result::kRefused, refused(session, assignment, same));
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
