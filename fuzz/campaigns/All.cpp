#include "fuzz/campaigns/Channels.h"
#include "fuzz/campaigns/Coordinators.h"
#include "fuzz/campaigns/Damage.h"
#include "fuzz/campaigns/Faults.h"
#include "fuzz/campaigns/HandedUp.h"
#include "fuzz/campaigns/Held.h"
#include "fuzz/campaigns/Kill.h"
#include "fuzz/campaigns/Levels.h"
#include "fuzz/campaigns/Links.h"
#include "fuzz/campaigns/Live.h"
#include "fuzz/campaigns/Power.h"
#include "fuzz/campaigns/Mirrors.h"
#include "fuzz/campaigns/Predicates.h"
#include "fuzz/campaigns/Processes.h"
#include "fuzz/campaigns/Racing.h"
#include "fuzz/campaigns/Schedule.h"
#include "fuzz/campaigns/Search.h"
#include "fuzz/campaigns/Subprocesses.h"
#include "fuzz/campaigns/Texts.h"
#include "fuzz/campaigns/Undo.h"
#include "fuzz/campaigns/Zones.h"

namespace Tessarin::campaigns {

std::span<Campaign const> allCampaigns() {
    static constexpr Campaign all[] = {
        {"faults", "every operation on files fails, and every allocation of SQLite", tryFault, judgeFaults, 150},
        {"power", "power goes while the disk writes", tryPower, judgePower, 200},
        {"kill", "killed at any moment of a save or a migration", tryKill, judgeKill, 300},
        {"damage", "damaged files are opened and used", tryDamage, judgeDamage, 100},
        {"predicates", "random formats, asked in memory and of a file", tryPredicates, judgePredicates, 10},
        {"search", "texts of many scripts, changed in every way, searched in a file and in memory", trySearch, judgeSearch, 10},
        {"processes", "processes race to make a store, follow each other's saves, and use one by eight", tryProcesses},
        {"schedule", "three levels of contexts against a sequential model; siblings that raise one record", trySchedule},
        {"levels", "linked records edited at every level, saves that fail, references let go, against layers of maps", tryLevels,
         judgeLevels, 40},
        {"coordinators", "two coordinators of a file link and delete the same records under random policies", tryCoordinators},
        {"handed-up", "many saves that one level hands to the next, at once or in the end", tryHandedUp},
        {"held", "objects that are held for long are edited at every level; the file and all contexts agree once all is saved",
         tryHeld},
        {"links", "two relationships through every change of their ends, against maps", tryLinks, judgeLinks, 30},
        {"live", "live lists of all kinds under random edits, against a copy that applies what they tell, and against fetches",
         tryLive, judgeLive, 5},
        {"undo", "random edits of linked records, taken back and brought back amid saves, imports and what others do", tryUndo,
         judgeUndo, 10},
        {"zones", "every time zone of the system beside the C library", tryZones},
        {"fuzz-text", "texts, half of them ill formed, through every operation on texts, beside ICU and slow ways", tryText,
         judgeTexts, 10},
        {"channels", "threads register, remove, destroy and post at notification centres and notifiers", tryChannels},
        {"subprocesses", "hundreds of subprocesses of all kinds under few descriptors and any SIGCHLD handler", trySubprocesses,
         judgeSubprocesses, 3},
    };
    return all;
}

std::span<Role const> allRoles() {
    static constexpr Role all[] = {
        {"saver", runSaver}, {"migrator", runMigrator}, {"actor", runActor}, {"mirror", runMirror}, {"maker", runMaker}};
    return all;
}

} // namespace Tessarin::campaigns
