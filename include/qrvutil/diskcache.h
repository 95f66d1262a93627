/* placeholder: filled in by its subsystem */
#pragma once
