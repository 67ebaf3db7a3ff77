#include "host/loader/PluginLoader.hpp"

#include <dlfcn.h>
#include <stdexcept>

namespace host {

namespace {

std::string lastDlError() {
    const char* error = dlerror();
    return error != nullptr ? error : "no error reported";
}

} // namespace

PluginLoader::PluginLoader(const std::string& libraryPath,
                           const plugin::IConfigurationSource& source) {
    load(libraryPath);
    try {
        plugin_->configure(source);
    } catch (...) {
        release();
        throw;
    }
}

void PluginLoader::load(const std::string& libraryPath) {
    library_ = dlopen(libraryPath.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library_ == nullptr) {
        throw std::runtime_error("cannot load plugin library " + libraryPath + ": " +
                                 lastDlError());
    }
    dlerror();
    auto query =
        reinterpret_cast<plugin::QueryPluginFunction>(dlsym(library_, plugin::queryPluginSymbol));
    if (query == nullptr) {
        const std::string error = lastDlError();
        dlclose(library_);
        throw std::runtime_error("plugin library " + libraryPath + " has no symbol " +
                                 plugin::queryPluginSymbol + ": " + error);
    }
    query(&descriptor_);
    plugin_ = descriptor_.create != nullptr ? descriptor_.create() : nullptr;
    applicationPlugin_ = dynamic_cast<app::IApplicationPlugin*>(plugin_);
    if (applicationPlugin_ == nullptr) {
        release();
        throw std::runtime_error("plugin library " + libraryPath +
                                 " did not create an application plugin");
    }
}

PluginLoader::~PluginLoader() {
    release();
}

void PluginLoader::release() {
    if (plugin_ != nullptr && descriptor_.destroy != nullptr) {
        descriptor_.destroy(plugin_);
    }
    dlclose(library_);
}

std::vector<boost::shared_ptr<app::IApplication>>
PluginLoader::getApplications(const boost::shared_ptr<const card::ICard>& card,
                              const card::IChannel& channel) const {
    return applicationPlugin_->getApplications(card, channel);
}

std::vector<boost::shared_ptr<app::IApplication>>
PluginLoader::getApplications(const boost::shared_ptr<const card::ICard>& card,
                              const boost::shared_ptr<const card::IApplet>& applet,
                              const card::IChannel& channel) const {
    return applicationPlugin_->getApplications(card, applet, channel);
}

} // namespace host
