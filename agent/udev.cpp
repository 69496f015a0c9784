#include "udev.h"

#include <libudev.h>

#include <memory>

namespace agent {

UdevProperty AskUdev() {
    const std::shared_ptr<udev> context(udev_new(), [](udev* handle) {
        if (handle != nullptr) udev_unref(handle);
    });
    return [context](const std::string& path, const char* property) -> std::string {
        if (context == nullptr) return {};
        const std::unique_ptr<udev_device, udev_device* (*)(udev_device*)> device(
            udev_device_new_from_syspath(context.get(), path.c_str()), udev_device_unref);
        if (device == nullptr) return {};
        const char* value = udev_device_get_property_value(device.get(), property);
        return value != nullptr ? value : "";
    };
}

}  // namespace agent
