#include "virtcam/line/equipment.h"

#include <cstdio>
#include <string>
#include <utility>

namespace virtcam::line {

Equipment equip(Config config, const char* owner, std::function<void()> listener) {
    Equipment equipment;
    equipment.rules.add(config.rules);
    equipment.camera = std::make_shared<model::Camera>(config.camera);
    if (!config.present) {
        equipment.camera->unplug();
    }
    equipment.camera->set_listener(std::move(listener));
    equipment.camera->set_failure_listener([owner](const std::string& why) {
        std::fprintf(stderr, "%s: the camera cannot make pictures: %s\n", owner, why.c_str());
    });
    equipment.config = std::move(config);
    return equipment;
}

}  // namespace virtcam::line
