// A plugin for clang-tidy: its checks look at the project's own code, not at that of system
// headers.
//
// They report nothing of those, but would go through all of them first, which is most of what a
// file costs: <windows.h> and the standard library are a hundred times as long as what includes
// them.
#include <clang/AST/ASTConsumer.h>
#include <clang/AST/ASTContext.h>
#include <clang/Basic/SourceManager.h>
#include <clang/Frontend/CompilerInstance.h>
#include <clang/Frontend/FrontendPluginRegistry.h>

#include <memory>
#include <string>
#include <vector>

namespace {

class OwnCode : public clang::ASTConsumer {
public:
    bool HandleTopLevelDecl(clang::DeclGroupRef group) override {
        for (clang::Decl* declaration : group) {
            const clang::SourceManager& files = declaration->getASTContext().getSourceManager();
            if (!files.isInSystemHeader(files.getExpansionLoc(declaration->getLocation()))) {
                own_.push_back(declaration);
            }
        }
        return true;
    }
    void HandleTranslationUnit(clang::ASTContext& context) override {
        context.setTraversalScope(own_);
    }

private:
    std::vector<clang::Decl*> own_;
};

class Action : public clang::PluginASTAction {
    std::unique_ptr<clang::ASTConsumer> CreateASTConsumer(clang::CompilerInstance&,
                                                          llvm::StringRef) override {
        return std::make_unique<OwnCode>();
    }
    bool ParseArgs(const clang::CompilerInstance&, const std::vector<std::string>&) override {
        return true;
    }
    ActionType getActionType() override { return AddBeforeMainAction; }
};

const clang::FrontendPluginRegistry::Add<Action> added("own-code", "checks see own code only");

}  // namespace
