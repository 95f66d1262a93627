/* The three vocabularies of the media command record and their text lookups. */
#include <qrvutil/mediacmd.h>

#include <cstddef>
#include <cstring>

/* State/value identifiers. The order is part of the contract: lookups return
 * the first matching row, and 64012 stands before 64011 because peers have
 * always listed them so. */
// clang-format off
constexpr mcmdXlat mcmdGSXlat[MCMD_GS_ROWS] = {
    {1, "tc"}, {2, "ub"}, {3, "ltctc"}, {4, "ltcub"}, {5, "vitctc"}, {6, "vitcub"},
    {7, "tcsource"}, {8, "tctype"}, {9, "start"}, {10, "end"}, {11, "in"}, {12, "lastin"},
    {13, "out"}, {14, "lastout"}, {15, "editon"}, {16, "editoff"}, {17, "preroll"},
    {18, "postroll"}, {19, "automode"}, {20, "playdelay"}, {21, "ltctcpreset"},
    {22, "ltcubpreset"}, {23, "vitctcpreset"}, {24, "vitcubpreset"}, {25, "framedata"},
    {26, "keycode"}, {27, "inkcode"}, {28, "215code"}, {29, "headsandtails"},
    {30, "timecodesources"}, {31, "ccsetup"}, {32, "disabletimecode"},
    {33, "vitcsourceprecedence"}, {34, "ltcsourceprecedence"}, {90, "getnextclip"},
    {91, "firstclip"}, {92, "nextclip"}, {93, "tcsgettlclipstate"}, {94, "tcsgettlclipinfo"},
    {95, "clipinfo"}, {96, "clipcopy"}, {97, "tcclipinfo"}, {100, "audchan"}, {101, "vidchan"},
    {102, "infchan"}, {103, "audselect"}, {104, "vidselect"}, {105, "infselect"},
    {106, "audedit"}, {107, "videdit"}, {108, "infedit"}, {109, "editmode"}, {150, "metadata"},
    {151, "metadatadirectory"}, {152, "metadatavolume"}, {153, "metadatacurrentuser"},
    {154, "metadatalocalmachine"}, {155, "metadataglobal"}, {156, "metadatareadwrite"},
    {158, "metabaseopen"}, {159, "metabasecreate"}, {160, "metabaseclose"},
    {161, "metabasefilecount"}, {162, "metabasefilename"}, {163, "metabasefileremove"},
    {164, "metabasefileadd"}, {165, "metabasetagindex"}, {166, "metabasegettag"},
    {167, "metabasesettag"}, {168, "metabasedefaulttags"}, {169, "metabasefilerename"},
    {170, "metabasereplaymark"}, {171, "metabasegetname"}, {172, "metabasegettable"},
    {173, "metabaseresetandrecord"}, {200, "audinselect"}, {201, "audoutselect"},
    {202, "audinputlevel"}, {203, "audoutputlevel"}, {204, "audadvancedlevel"},
    {205, "audoutphase"}, {206, "audoutadvancedphase"}, {207, "audcrossfadetime"},
    {208, "audltcenable"}, {209, "audinltcchannel"}, {210, "audoutltcchannel"},
    {211, "auddtmfenable"}, {212, "audindtmfchannel"}, {213, "audoutdtmfchannel"},
    {214, "audwavepeakrms"}, {215, "audinputbitrate"}, {216, "audinputsamplerate"},
    {217, "audinputmode"}, {218, "audinputheadroom"}, {219, "audinputoriginal"},
    {220, "audinputerrorprotect"}, {221, "audinputcopyright"}, {222, "audinputslave"},
    {223, "audinputbass"}, {224, "audinputtreble"}, {225, "audinputstatus"},
    {226, "audiomappinginput"}, {227, "audiomappingoutput"}, {228, "audmonitorselect"},
    {229, "audchannelsencoded"}, {230, "audaudioscrub"}, {300, "vidfreeze"},
    {301, "vidprereadmode"}, {302, "videditfield"}, {303, "vidrecframe"}, {304, "vidplayframe"},
    {305, "vidnoee"}, {306, "vidsuperimpose"}, {307, "vidanalogmonitorsdtype"},
    {308, "vidanalogmonitorhdtype"}, {309, "vidanalogmonitormethod"},
    {310, "vidanalogmonitorupmode"}, {311, "vidanalogmonitordownmode"}, {312, "vidpanscanzoom"},
    {313, "vidslowmotionmode"}, {314, "vidvaricammode"}, {315, "vidcustomsuperimpose"},
    {400, "vidinselect"}, {401, "vidinlocktype"}, {402, "vidinsetup"}, {403, "vidinvideo"},
    {404, "vidinhue"}, {405, "vidinchroma"}, {406, "vidinuchroma"}, {407, "vidinvchroma"},
    {408, "vidincolorkiller"}, {409, "vidinagc"}, {410, "vidinbandwidth"}, {411, "vidinblack"},
    {412, "vidinwhite"}, {413, "vidincoring"}, {414, "vidinpeaking"}, {415, "vidinsharpness"},
    {416, "vidingamma"}, {417, "vidinsignalformat"}, {418, "vidinquality"}, {500, "vidsetup"},
    {501, "vidvideo"}, {502, "vidhue"}, {503, "vidchroma"}, {504, "viduchroma"},
    {505, "vidvchroma"}, {506, "vidbandwidth"}, {507, "vidblacksetup"}, {508, "vidcolor"},
    {509, "videoinputrouting"}, {600, "vidoutselect"}, {601, "vidoutgenlock"},
    {602, "vidoutgenlocksource"}, {603, "vidoutlocktype"}, {604, "vidouthphase"},
    {605, "vidoutsubcarrier"}, {606, "vidoutcoring"}, {607, "vidoutpeaking"},
    {608, "vidoutadjust1"}, {609, "vidoutadjust2"}, {610, "vidoutgenlockdelay"},
    {611, "vidoutlocksignalformat"}, {612, "disableduallink"}, {613, "referencewipemix"},
    {614, "disablegenlockforinfiniteloop"}, {700, "compchverticalres"},
    {701, "compchhorizontalres"}, {702, "compchchromaformat"}, {703, "compchdcprecision"},
    {704, "compchaspectratio"}, {705, "compchstandard"}, {706, "compchlanguagecode"},
    {707, "compchccformat"}, {708, "compchconcealmentvector"}, {709, "compchclosedgop"},
    {710, "compchadjustgoptc"}, {711, "compchaltcoefftable"}, {712, "compchnonlinearquant"},
    {713, "compchmuxrate"}, {714, "compchaudpacketsize"}, {715, "compchvidpacketsize"},
    {716, "compchaudiostreamid"}, {717, "compchvideostreamid"}, {718, "compchaudiostreampid"},
    {719, "compchvideostreampid"}, {720, "compchallowsettings"}, {721, "compchfourcc"},
    {722, "compchbitcount"}, {723, "compchsizeimage"}, {724, "compchrate"},
    {725, "compchscale"}, {726, "compchpitch"}, {727, "videoencodeformat"},
    {728, "audioencodeformat"}, {729, "compchannelchangems"}, {730, "alphachromasource"},
    {731, "compressiontype"}, {732, "videostandard"}, {733, "resetchannel"},
    {734, "enablehdsdformat"}, {735, "vblankenable"}, {736, "lutenable"},
    {737, "audiofiletype"}, {738, "audiobitsize"}, {739, "audiofrequency"},
    {740, "enableoverlappedwrites"}, {741, "matchoutputtoclip"},
    {742, "allowindependentchanconfig"}, {900, "signalformat"}, {901, "comptype"},
    {902, "compratesize"}, {903, "comprateratio"}, {904, "compratepercent"},
    {905, "compgopsize"}, {906, "compifactor"}, {907, "compbfactor"}, {908, "comppfactor"},
    {909, "comprefperiod"}, {910, "totalstorageavail"}, {911, "totalstoragefree"},
    {912, "totaltimeavail"}, {913, "totaltimefree"}, {914, "vtrtype"},
    {915, "hdsditransfertype"}, {1000, "local"}, {1001, "supportedfiletype"},
    {1002, "ignorefiletype"}, {1003, "recinhibit"}, {1004, "recdrive"}, {1005, "recfilename"},
    {1006, "recrate"}, {1007, "recfileformat"}, {1008, "recaudfileformat"},
    {1009, "delinhibit"}, {1010, "insinhibit"}, {1011, "convertfileformat"},
    {1012, "convertaudfileformat"}, {1013, "defstilllen"}, {1014, "systime"}, {1015, "dsyncms"},
    {1016, "hwport"}, {1017, "pbee"}, {1018, "servorefselect"}, {1019, "headselect"},
    {1020, "colorframe"}, {1021, "vidrefdisable"}, {1022, "playcountdelay"},
    {1023, "emulateeditbumping"}, {1028, "vidinputvalid"}, {1029, "vidgenlockvalid"},
    {1030, "serialeditmode"}, {1031, "serialprotocols"}, {1032, "pausebeforestop"},
    {1033, "pausedelay"}, {1034, "frontpanel"}, {1035, "frontpanelcomport"},
    {1036, "vdcppreroll"}, {1037, "gettcltc"}, {1038, "gettcvitc"}, {1039, "gettcrp188"},
    {1040, "gettcrp215"}, {1041, "gettcrp215ink"}, {1042, "gettcirig"}, {1043, "gettcflags"},
    {1044, "recordstarttype"}, {1045, "getafdstatus"}, {1046, "getccstatus"},
    {1047, "getaudiostatus"}, {3000, "userdata0"}, {3001, "userdata1"}, {3002, "userdata2"},
    {3003, "userdata3"}, {3004, "userdata4"}, {3005, "userdata5"}, {3006, "userdata6"},
    {3007, "userdata7"}, {3008, "userdata8"}, {3009, "userdata9"}, {10000, "errorlog"},
    {10001, "errorlogname"}, {10002, "errorlogstartms"}, {10003, "errorlogcurrentms"},
    {10004, "errorloglastchange"}, {10005, "errormessage"}, {10100, "eventlog"},
    {20000, "sysbufferlevel"}, {20001, "sysmemoryusage"}, {20002, "syscpuusage"},
    {20003, "droppedframes"}, {50000, "proxymode"}, {50001, "proxystatus"},
    {50002, "getnextproxy"}, {50003, "addproxy"}, {50004, "promoteproxy"},
    {50005, "removeproxy"}, {50006, "proxycpuusage"}, {50007, "transfertoarchive"},
    {50008, "transferfromarchive"}, {50009, "getnextarchiveclip"},
    {50010, "getnexttransfertoarchiveclip"}, {50011, "getnexttransferfromarchiveclip"},
    {50012, "addproxyandoutputname"}, {60000, "qrvversion"}, {60001, "meversion"},
    {60002, "qrvtype"}, {60003, "qrvchanneltype"}, {60004, "qrvchannelname"},
    {64000, "monitor"}, {64001, "monitorhwnds"}, {64002, "monitordisplay"},
    {64003, "monitorgrab"}, {64004, "utilitymonitordraw"}, {64005, "utilitymonitordrawsetup"},
    {64006, "wavevectorsetup"}, {64007, "wavevectortype"}, {64008, "wavevectorarea"},
    {64009, "wavevectorlastchangems"}, {64010, "monitorloadbuffers"},
    {64012, "wavevectorgetdata"}, {64011, "wavevectorquality"}, {64250, "dirgetlist"},
    {64251, "dirgetinfo"}, {64252, "dirgetfileinfo"}, {64253, "dirgetfilegrab"},
    {64254, "vgadisplayenable"}, {64255, "vgadirectxconfig"}, {64256, "vga3dconfig"},
    {64257, "vga3dwipetype"}, {64258, "vga3dmix"}, {64259, "vga3dthreshold"},
    {64260, "vga3dsplithorizontal"}, {64261, "vga3dsplitvertical"}, {64262, "vga3dgridsize"},
    {64263, "vga3dgridtype"}, {64264, "vgafullscreenenable"}, {64265, "limitavailablechannels"},
    {64266, "vgazoompan"}, {65536, "channelsexist"}, {65537, "clipmode"}, {65538, "recoffset"},
    {65539, "chancapabilities"}, {65540, "lastchangems"}, {65541, "gpiin"}, {65542, "gpiout"},
    {65543, "currentms"}, {65544, "clipmodepreroll"}, {65545, "clipmodebackup"},
    {100000, "savecurrent"}, {100001, "loadclipspace"}, {100002, "loadtcspace"},
    {100003, "loadfilmspace"}, {100004, "loadeditspace"}, {100005, "saveclipspacetodisk"},
    {100006, "savetcspacedisk"}, {900000, "userlogin"}, {900001, "userlastchangems"},
    {900002, "userlist"}, {900003, "useradd"}, {900004, "userdel"}, {900005, "userrights"},
    {900006, "userpasswd"}, {1000000, "piconframe"}, {1000001, "jpegframe"},
    {1000002, "imagedirectory"}, {1000003, "frameinfo"}, {1000004, "rawframe"},
    {1000005, "preallocateeditfile"}, {1000006, "createeditfile"}, {1000007, "previewframe"},
    {1100000, "qrvservice"}, {1100001, "insertqueue"}, {1100002, "xlatqueue"},
    {1100003, "xmlratescale"}, {1100004, "xmlfileproperties"}, {1100005, "kxprojecttoxml"},
    {1100006, "applicationid"}, {1100007, "inlay"}, {1100008, "inlayfile"},
    {1100009, "inlaysourcearea"}, {1100010, "inlaydestinationarea"}, {1100011, "inlayoffset"},
    {1100012, "inlaytctype"}, {1100013, "exportclip"}, {1100014, "exportclipdirectory"},
    {1100016, "exportfilename"}, {1100019, "importclipdirectory"}, {1100020, "filesegmentsize"},
    {1100021, "recordfileupdateframes"}, {1100022, "checkframetimestamp"},
    {0x7FFF0000u, "shutdownapplication"}, {0x7FFF0001u, "shutdownsystem"},
    {0x7FFF0002u, "cleanrecordwipedrive"}, {0x7FFF0003u, "installsystem"},
};

/* Command flags. Three bits carry two names each; the first row is the name a
 * value turns into. Bit 0x04000000 has no name. */
constexpr mcmdXlat mcmdFLAGXlat[MCMD_FLAG_ROWS] = {
    {0x00000001u, "deferred"},      {0x40000000u, "overridedeferred"},
    {0x00000002u, "timems"},        {0x00000004u, "timetarget"},
    {0x00000008u, "timehouseclock"}, {0x00000010u, "usespeed"},
    {0x00000020u, "usepresets"},    {0x00000040u, "useposition"},
    {0x00000080u, "usepositionoffset"}, {0x00000100u, "usestart"},
    {0x00000200u, "usestartoffset"}, {0x00000400u, "useend"},
    {0x00000800u, "useendoffset"},  {0x00001000u, "useallids"},
    {0x00002000u, "useclipid"},     {0x00004000u, "copy"},
    {0x00004000u, "noclipfiles"},   {0x00008000u, "convert"},
    {0x00008000u, "notcspaces"},    {0x00010000u, "usecmdalt"},
    {0x00020000u, "isshuttle"},     {0x00040000u, "usingcurrent"},
    {0x00080000u, "useframecount"}, {0x00100000u, "fields"},
    {0x00200000u, "ripple"},        {0x00400000u, "loop"},
    {0x00800000u, "trigger"},       {0x01000000u, "preview"},
    {0x02000000u, "remotecommand"}, {0x08000000u, "secondfield"},
    {0x08000000u, "usenextfield"},  {0x10000000u, "invert"},
    {0x20000000u, "test"},          {0x80000000u, "noreturn"},
};
// clang-format on

/* For callers' own use; the library never reads or fills it. */
mcmdXlat mcmdGSStringXlat[MCMD_GS_ROWS] = {};

namespace {

/* Every row named in lower case (a short initialiser list would leave rows
 * unnamed) and, for the gs table, no value twice. */
constexpr bool rowsNamedInLowerCase(const mcmdXlat *rows, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        if (!rows[i].name || !rows[i].name[0])
            return false;
        for (const char *c = rows[i].name; *c; ++c)
            if (*c >= 'A' && *c <= 'Z')
                return false;
    }
    return true;
}

constexpr bool valuesUnique(const mcmdXlat *rows, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        for (size_t j = i + 1; j < count; ++j)
            if (rows[i].value == rows[j].value)
                return false;
    return true;
}

constexpr size_t longestName(const mcmdXlat *rows, size_t count)
{
    size_t longest = 0;
    for (size_t i = 0; i < count; ++i) {
        size_t n = 0;
        while (rows[i].name[n])
            ++n;
        if (n > longest)
            longest = n;
    }
    return longest;
}

static_assert(rowsNamedInLowerCase(mcmdGSXlat, MCMD_GS_ROWS), "gs rows complete");
static_assert(rowsNamedInLowerCase(mcmdFLAGXlat, MCMD_FLAG_ROWS), "cf rows complete");
static_assert(valuesUnique(mcmdGSXlat, MCMD_GS_ROWS), "no gs value twice");
static_assert(longestName(mcmdGSXlat, MCMD_GS_ROWS) + 1 == MCMD_NAME_MAX, "gs name buffer");

char asciiLower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool sameNameIgnoringCase(const char *a, const char *b, size_t length)
{
    for (size_t i = 0; i < length; ++i)
        if (asciiLower(a[i]) != asciiLower(b[i]))
            return false;
    return true;
}

const mcmdXlat *findValue(const mcmdXlat *rows, size_t count, unsigned value)
{
    for (size_t i = 0; i < count; ++i)
        if (rows[i].value == value)
            return &rows[i];
    return nullptr;
}

const mcmdXlat *findName(const mcmdXlat *rows, size_t count, const char *name)
{
    const size_t length = std::strlen(name);
    for (size_t i = 0; i < count; ++i)
        if (std::strlen(rows[i].name) == length && sameNameIgnoringCase(rows[i].name, name, length))
            return &rows[i];
    return nullptr;
}

int nameOf(const mcmdXlat *rows, size_t count, unsigned value, char *name)
{
    const mcmdXlat *row = findValue(rows, count, value);
    if (!row)
        return -1;
    if (name)
        std::strcpy(name, row->name);
    return 0;
}

int valueOf(const mcmdXlat *rows, size_t count, const char *name, unsigned *value)
{
    const mcmdXlat *row = name ? findName(rows, count, name) : nullptr;
    if (!row)
        return -1;
    if (value)
        *value = row->value;
    return 0;
}

} // namespace

int gsToString(unsigned value, char *name) { return nameOf(mcmdGSXlat, MCMD_GS_ROWS, value, name); }

int gsFromString(const char *name, unsigned *value)
{
    return valueOf(mcmdGSXlat, MCMD_GS_ROWS, name, value);
}

int cfToString(unsigned flag, char *name)
{
    return nameOf(mcmdFLAGXlat, MCMD_FLAG_ROWS, flag, name);
}

int cfFromString(const char *name, unsigned *flag)
{
    return valueOf(mcmdFLAGXlat, MCMD_FLAG_ROWS, name, flag);
}
